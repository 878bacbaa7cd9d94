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

}  // namespace
