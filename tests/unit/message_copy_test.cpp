// Message and MessageData: the copy rules the message centre relies on.
#include <gtest/gtest.h>

#include <vector>

#include "client/interface/message.h"

namespace {

std::vector<uint8_t> Bytes(const MessageData& data) {
  return {data.GetBuffer(), data.GetBuffer() + data.GetBufferSize()};
}

TEST(MessageDataTest, NewRecordHasNoValueAndCopiesCarryEveryValue) {
  const MessageData empty;
  EXPECT_EQ(empty.GetType(), 5u);
  EXPECT_EQ(empty.GetBuffer(), nullptr);
  EXPECT_EQ(empty.GetBufferSize(), 0u);

  MessageData source;
  source.SetInt(7);
  source.SetInt64(-1LL << 40);
  source.SetFloat(2.5f);
  source.SetString("imx766");
  MessageData copy;
  copy = source;
  EXPECT_EQ(copy.GetType(), 3u);
  EXPECT_EQ(copy.GetString(), "imx766");
  EXPECT_EQ(copy.GetInt(), 7u);
  EXPECT_EQ(copy.GetInt64(), -1LL << 40);
  EXPECT_EQ(copy.GetFloat(), 2.5f);

  const uint8_t bytes[] = {1, 2, 3};
  source.SetBuffer(bytes, sizeof(bytes));
  MessageData bufferCopy(source);
  EXPECT_EQ(bufferCopy.GetType(), 4u);
  EXPECT_NE(bufferCopy.GetBuffer(), source.GetBuffer());
  EXPECT_EQ(Bytes(bufferCopy), (std::vector<uint8_t>{1, 2, 3}));
  MessageData& alias = bufferCopy;
  bufferCopy = alias;  // self-assignment changes nothing
  EXPECT_EQ(Bytes(bufferCopy), (std::vector<uint8_t>{1, 2, 3}));
}

// A source without bytes (an empty buffer or another type) keeps the
// destination's buffer but hands over its type and size.
TEST(MessageDataTest, SourceWithoutBytesKeepsTheOldBufferButCopiesTypeAndSize) {
  const uint8_t bytes[] = {9, 8, 7, 6};
  MessageData emptyBuffer, text;
  emptyBuffer.SetBuffer(nullptr, 0);
  text.SetString("x");
  for (const MessageData* source : {&emptyBuffer, &text}) {
    MessageData destination;
    destination.SetBuffer(bytes, sizeof(bytes));
    const uint8_t* oldBuffer = destination.GetBuffer();
    destination = *source;
    EXPECT_EQ(destination.GetBuffer(), oldBuffer);
    EXPECT_EQ(destination.GetType(), source->GetType());
    EXPECT_EQ(destination.GetBufferSize(), 0u);
    if (source == &text) EXPECT_EQ(destination.GetString(), "x");
  }
}

TEST(MessageTest, CopyKeepsNameKeysValuesAndOrder) {
  Message message("GET_MOST_PROBE_SENSOR_NAME");
  message.m_data["sensor_type"].SetString("rear");
  message.m_data["record_count"].SetInt64(100);
  message.m_data["Z"].SetInt(1);  // byte-wise order: "Z" sorts before lower case

  const Message copy(message);
  EXPECT_EQ(copy.m_name, "GET_MOST_PROBE_SENSOR_NAME");
  std::vector<std::string> keys;
  for (const auto& entry : copy.m_data) keys.push_back(entry.first);
  EXPECT_EQ(keys, (std::vector<std::string>{"Z", "record_count", "sensor_type"}));
  EXPECT_EQ(copy.m_data.at("sensor_type").GetString(), "rear");
  EXPECT_EQ(copy.m_data.at("record_count").GetInt64(), 100);
  EXPECT_EQ(copy.m_data.at("record_count").GetType(), message.m_data.at("record_count").GetType());
}

}  // namespace
