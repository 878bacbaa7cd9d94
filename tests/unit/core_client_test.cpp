// RemediumClient over the fake framework core: absent, present, appearing
// later, present without a usable instance, and broken.
#include "client/interface/remediumclient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

#include "harness.h"
#include "simframework.h"
#include "simlog.h"
#include "support/fresh_process.h"
#include "support/log_matchers.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fw = sim::framework;

// Log lines as "<line>:<text>" of the client's file.
std::vector<std::string> ClientLines() {
  std::vector<std::string> lines;
  for (const std::string& text : test::LogTexts()) {
    if (text.rfind("remediumclient.h:", 0) == 0) lines.push_back(text.substr(17));
  }
  return lines;
}

class CoreClientTest : public ::testing::Test {
 protected:
  sim::Phone phone_;
};

TEST_F(CoreClientTest, MissingCoreGivesNeutralResultsAndRetriesTheLoadAtEachUse) {
  EXPECT_IN_FRESH_PROCESS([] {
    EXPECT_FALSE(RemediumClient::IsSwitchOpened(2));
    RemediumClient::ProtectionCallback(CallbackMessage{2, 2, 0x201000, "imx766", kCallbackMessageTypeProtection});
    EXPECT_THAT(RemediumClient::GetHookArguments("SensorProbeProtection"), IsEmpty());
    RemediumClient::NotifyHookMessage(HookNotification{"SensorProbeHook", 1});
    RemediumClient::RecordProbeMessage("imx766", true);
    const std::string load = "90 LoadRemedium() m_pRemediumCore is NULL";
    EXPECT_THAT(ClientLines(), ElementsAre(load, load, "191 IsSwitchOpened() m_pRemediumCore is NULL", load,
                                           "152 ProtectionCallback() m_pRemediumCore is NULL", load,
                                           "131 GetHookArguments() m_pRemediumCore is NULL", load,
                                           "111 NotifyHookMessage() m_pRemediumCore is NULL", load,
                                           "212 RecordProbeMessage() m_pRemediumCore is NULL"));
    for (const sim::LogLine& line : sim::LogLines()) EXPECT_EQ(line.priority, 6);
  });
}

TEST_F(CoreClientTest, PresentCoreReceivesEveryCallInItsSlot) {
  EXPECT_IN_FRESH_PROCESS([] {
    fw::InstallCore();
    fw::SetSwitch(2, true);
    fw::SetHookArguments("SensorProbeProtection", {"imx", "ov50"});
    EXPECT_TRUE(RemediumClient::IsSwitchOpened(2));
    EXPECT_FALSE(RemediumClient::IsSwitchOpened(3));
    EXPECT_THAT(RemediumClient::GetHookArguments("SensorProbeProtection"), ElementsAre("imx", "ov50"));
    RemediumClient::ProtectionCallback(CallbackMessage{2, 3, 0x201000, "imx766", kCallbackMessageTypeProtection});
    RemediumClient::NotifyHookMessage(HookNotification{"SensorProbeHook", 1});
    RemediumClient::RecordProbeMessage("imx766", false);

    EXPECT_THAT(ClientLines(), IsEmpty());
    EXPECT_EQ(fw::CoreInstanceRequests(), 1);
    ASSERT_EQ(fw::CoreCallbacks().size(), 1u);
    const fw::CoreCallback c = fw::CoreCallbacks()[0];
    EXPECT_EQ(std::make_tuple(c.arg0, c.arg1, c.errorCode, c.name, c.messageType),
              std::make_tuple(2u, 3u, 0x201000u, "imx766", "CallbackMessageType::Protection"));
    ASSERT_EQ(fw::CoreNotifications().size(), 1u);
    EXPECT_EQ(fw::CoreNotifications()[0].hookName, "SensorProbeHook");
    EXPECT_EQ(fw::CoreNotifications()[0].value, 1);
    ASSERT_EQ(fw::CoreProbeRecords().size(), 1u);
    EXPECT_FALSE(fw::CoreProbeRecords()[0].result);
  });
}

TEST_F(CoreClientTest, CoreInstalledAfterAFailedLoadIsPickedUpAndKept) {
  EXPECT_IN_FRESH_PROCESS([] {
    EXPECT_FALSE(RemediumClient::IsSwitchOpened(2));
    fw::InstallCore();
    fw::SetSwitch(2, true);
    EXPECT_TRUE(RemediumClient::IsSwitchOpened(2));
    EXPECT_TRUE(RemediumClient::IsSwitchOpened(2));
    EXPECT_EQ(fw::CoreInstanceRequests(), 1);  // loaded once, then kept
    fw::RemoveCore();
    EXPECT_TRUE(RemediumClient::IsSwitchOpened(2));  // no unload while running
  });
}

TEST_F(CoreClientTest, NullInstanceIsKeptAndNeverLookedUpAgain) {
  EXPECT_IN_FRESH_PROCESS([] {
    fw::InstallCore();
    fw::SetCoreInstanceNull(true);
    EXPECT_FALSE(RemediumClient::IsSwitchOpened(2));
    fw::SetCoreInstanceNull(false);
    EXPECT_FALSE(RemediumClient::IsSwitchOpened(2));
    EXPECT_EQ(fw::CoreInstanceRequests(), 1);
    EXPECT_THAT(ClientLines(), ElementsAre("191 IsSwitchOpened() m_pRemediumCore is NULL",
                                           "191 IsSwitchOpened() m_pRemediumCore is NULL"));
  });
}

TEST_F(CoreClientTest, CoreWithoutEntryTrapsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        fw::InstallCoreWithoutEntry();
        RemediumClient::IsSwitchOpened(2);
      },
      test::KilledByTrap(), "");
}

}  // namespace
