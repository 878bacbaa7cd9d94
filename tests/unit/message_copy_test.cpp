// Message and MessageData: the copy rules the message centre relies on.
#include <vector>

#include <gtest/gtest.h>

#include "client/interface/message.h"

namespace {

std::vector<uint8_t> Bytes(const MessageData& data) {
  return {data.GetBuffer(), data.GetBuffer() + data.GetBufferSize()};
}

TEST(MessageDataTest, NewRecordHasNoValueAndCopiesCarryEveryValue) {
  EXPECT_EQ(MessageData().GetType(), 5u);
  EXPECT_EQ(MessageData().GetBuffer(), nullptr);
  MessageData source;
  source.SetInt(7);
  source.SetInt64(-1LL << 40);
  source.SetFloat(2.5f);
  const uint8_t bytes[] = {1, 2, 3};
  source.SetBuffer(bytes, sizeof(bytes));
  MessageData copy(source);
  EXPECT_EQ(copy.GetType(), 4u);
  EXPECT_EQ(copy.GetInt(), 7u);
  EXPECT_EQ(copy.GetInt64(), -1LL << 40);
  EXPECT_EQ(copy.GetFloat(), 2.5f);
  EXPECT_NE(copy.GetBuffer(), source.GetBuffer());
  MessageData& alias = copy;
  copy = alias;  // self-assignment changes nothing
  EXPECT_EQ(Bytes(copy), (std::vector<uint8_t>{1, 2, 3}));
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

// Assigning a message replaces its name and every entry: keys the source
// lacks are gone, shared keys take the source's values as deep copies, and
// assigning a message to itself keeps it whole.
TEST(MessageTest, AssignmentReplacesNameAndEveryEntryWithDeepCopies) {
  const uint8_t bytes[] = {4, 5};
  Message source("GET_MOST_PROBE_SENSOR_NAME");
  source.m_data["sensor_type"].SetString("rear_main");
  source.m_data["payload"].SetBuffer(bytes, sizeof(bytes));
  Message destination("stale");
  destination.m_data["sensor_type"].SetString("front");
  destination.m_data["record_count"].SetInt64(100);
  destination = source;
  EXPECT_EQ(destination.m_name, "GET_MOST_PROBE_SENSOR_NAME");
  ASSERT_EQ(destination.m_data.size(), 2u);
  EXPECT_EQ(destination.m_data.count("record_count"), 0u);
  EXPECT_EQ(destination.m_data.at("sensor_type").GetString(), "rear_main");
  EXPECT_NE(destination.m_data.at("payload").GetBuffer(), source.m_data.at("payload").GetBuffer());
  EXPECT_EQ(Bytes(destination.m_data.at("payload")), (std::vector<uint8_t>{4, 5}));

  Message& alias = destination;
  destination = alias;
  EXPECT_EQ(destination.m_name, "GET_MOST_PROBE_SENSOR_NAME");
  EXPECT_EQ(destination.m_data.size(), 2u);
  EXPECT_EQ(destination.m_data.at("sensor_type").GetString(), "rear_main");
}

}  // namespace
