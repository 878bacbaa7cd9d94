// Message and MessageData: the copy rules the message centre relies on.
#include "client/interface/message.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<uint8_t> Bytes(const MessageData& data) {
  return {data.GetBuffer(), data.GetBuffer() + data.GetBufferSize()};
}

TEST(MessageDataTest, NewRecordHasNoValue) {
  const MessageData data;
  EXPECT_EQ(data.GetType(), 5u);
  EXPECT_EQ(data.GetBuffer(), nullptr);
  EXPECT_EQ(data.GetBufferSize(), 0u);
}

TEST(MessageDataTest, AssignmentCopiesEveryValue) {
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
}

TEST(MessageDataTest, BufferIsCopiedNotShared) {
  const uint8_t bytes[] = {1, 2, 3};
  MessageData source;
  source.SetBuffer(bytes, sizeof(bytes));
  MessageData copy(source);
  EXPECT_EQ(copy.GetType(), 4u);
  EXPECT_NE(copy.GetBuffer(), source.GetBuffer());
  EXPECT_EQ(Bytes(copy), (std::vector<uint8_t>{1, 2, 3}));
}

// A buffer-typed source without bytes keeps the destination's buffer but
// still hands over its type and size.
TEST(MessageDataTest, EmptyBufferSourceKeepsOldBufferButCopiesTypeAndSize) {
  const uint8_t bytes[] = {9, 8, 7, 6};
  MessageData destination;
  destination.SetBuffer(bytes, sizeof(bytes));
  const uint8_t* oldBuffer = destination.GetBuffer();

  MessageData emptyBuffer;
  emptyBuffer.SetBuffer(nullptr, 0);
  destination = emptyBuffer;
  EXPECT_EQ(destination.GetBuffer(), oldBuffer);
  EXPECT_EQ(destination.GetType(), 4u);
  EXPECT_EQ(destination.GetBufferSize(), 0u);
}

// A non-buffer source overwrites the size and keeps the destination's buffer.
TEST(MessageDataTest, NonBufferSourceOverwritesSizeOnly) {
  const uint8_t bytes[] = {9, 8, 7, 6};
  MessageData destination;
  destination.SetBuffer(bytes, sizeof(bytes));
  const uint8_t* oldBuffer = destination.GetBuffer();

  MessageData text;
  text.SetString("x");
  destination = text;
  EXPECT_EQ(destination.GetType(), 3u);
  EXPECT_EQ(destination.GetBuffer(), oldBuffer);
  EXPECT_EQ(destination.GetBufferSize(), 0u);
  EXPECT_EQ(destination.GetString(), "x");
}

TEST(MessageDataTest, SelfAssignmentChangesNothing) {
  const uint8_t bytes[] = {5};
  MessageData data;
  data.SetBuffer(bytes, 1);
  MessageData& alias = data;
  data = alias;
  EXPECT_EQ(Bytes(data), (std::vector<uint8_t>{5}));
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
