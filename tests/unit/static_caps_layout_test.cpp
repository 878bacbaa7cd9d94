// The slot id in the HAL's static caps, at the byte offset of the HAL build.
// What the library does with it is shown by the slot_table scenario.
#include <cstring>

#include <gtest/gtest.h>

#include "sim/hal/simhal.h"

namespace {

TEST(LayoutTest, StaticCapsSlotIdOffset) {
  sim::hal::Object caps = sim::hal::MakeStaticCaps(0xA5A5);
  uint32_t raw = 0;
  std::memcpy(&raw, static_cast<const char*>(caps.get()) + 316184, sizeof(raw));
  EXPECT_EQ(raw, 0xA5A5u);
}

}  // namespace
