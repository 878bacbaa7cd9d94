// Process-wide tables at load, and GetStaticCapsHook's camera-to-slot table.
#include <gtest/gtest.h>

#include <cstring>

#include "harness.h"
#include "hook/src/camxlayout.h"
#include "hook/src/globals.h"
#include "hook/src/hook.h"
#include "simhal.h"
#include "simshadowhook.h"
#include "support/log_matchers.h"

namespace {

TEST(GlobalsTest, NameAndSwitchTablesAtLoad) {
  EXPECT_EQ(CamX::sensorTypeNames.size(), 19u);
  EXPECT_EQ(CamX::sensorTypeNames.max_load_factor(), 1.0f);
  for (int key = 0; key <= 16; ++key) EXPECT_EQ(CamX::sensorTypeNames.count(key), 1u) << key;
  EXPECT_STREQ(CamX::sensorTypeNames.at(1), "Gyro");
  EXPECT_STREQ(CamX::sensorTypeNames.at(15), "OisManager");
  EXPECT_STREQ(CamX::sensorTypeNames.at(32), "CustomStart");
  EXPECT_STREQ(CamX::sensorTypeNames.at(64), "CustomEnd");
  EXPECT_EQ(CamX::moduleSwitchBits.size(), 7u);
  EXPECT_EQ(CamX::moduleSwitchBits.at("monitr"), 2);
  EXPECT_EQ(CamX::moduleSwitchBits.at("sensorstate"), 64);
}

class SlotTableTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sim::RegisterHook(reinterpret_cast<void*>(&CamX::GetStaticCapsHook),
                      reinterpret_cast<void*>(&sim::hal::GetStaticCaps));
    for (auto& entry : CamX::cameraSlotIds) entry.store(0);
  }

  CamxResult Query(unsigned int cameraId, uint32_t slotId) {
    sim::hal::Object caps = sim::hal::MakeStaticCaps(slotId);
    return CamX::GetStaticCapsHook(nullptr, static_cast<CamX::SensorModuleStaticCaps*>(caps.get()), nullptr,
                                   nullptr, cameraId);
  }

  sim::Phone phone_;
};

TEST_F(SlotTableTest, StoresSlotsInRangeOnlyAndReturnsTheHalResult) {
  sim::hal::ScriptResults("GetStaticCaps", {0, -22, 3});
  EXPECT_EQ(Query(15, 15), 0);
  EXPECT_EQ(CamX::cameraSlotIds[15].load(), 15u);
  EXPECT_EQ(Query(3, 7), -22);
  EXPECT_EQ(Query(3, 16), 3);  // slot out of range: the older entry stays
  Query(16, 2);                 // camera out of range
  Query(0xFFFFFFFF, 1);         // unsigned, out of range
  EXPECT_EQ(CamX::cameraSlotIds[3].load(), 7u);
  for (uint32_t camera : {0u, 1u, 2u}) EXPECT_EQ(CamX::cameraSlotIds[camera].load(), 0u);
  Query(3, 9);  // a newer query overwrites
  EXPECT_EQ(CamX::cameraSlotIds[3].load(), 9u);
  EXPECT_EQ(sim::hal::CallCount("GetStaticCaps"), 6);

  // Every query is logged before it is checked.
  const std::vector<std::string> texts = test::LogTexts();
  ASSERT_EQ(texts.size(), 6u);
  EXPECT_EQ(texts[3].rfind("hook.cpp:", 0), 0u);
  EXPECT_NE(texts[3].find("GetStaticCapsHook() camera id: 16, slot id: 2"), std::string::npos) << texts[3];
  EXPECT_NE(texts[4].find("camera id: -1, slot id: 1"), std::string::npos) << texts[4];
}

// The slot id is read at its fixed offset in the HAL's static caps.
TEST(LayoutTest, StaticCapsSlotIdOffset) {
  sim::hal::Object caps = sim::hal::MakeStaticCaps(0xA5A5);
  uint32_t raw = 0;
  std::memcpy(&raw, static_cast<const char*>(caps.get()) + 316184, sizeof(raw));
  EXPECT_EQ(raw, 0xA5A5u);
}

}  // namespace
