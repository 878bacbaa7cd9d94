// RemediumClient over the fake framework core: absent, appearing later,
// present without a usable instance, and broken. What a present core receives
// from each hook is pinned by the golden transcripts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/interface/remediumclient.h"
#include "sim/framework/simframework.h"
#include "sim/platform/simlog.h"
#include "tests/support/fresh_process.h"
#include "tests/support/log_matchers.h"

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

using CoreClientTest = test::PhoneTest;

// Each wrapper retries the load and logs its own line; a core installed later
// is picked up at the next use, loaded once and kept.
TEST_F(CoreClientTest, MissingCoreIsRetriedAtEachUseThenLoadedOnceAndKept) {
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
    fw::InstallCore();
    fw::SetSwitch(2, true);
    EXPECT_TRUE(RemediumClient::IsSwitchOpened(2));
    RemediumClient::NotifyHookMessage(HookNotification{"SensorProbeHook", 1});
    ASSERT_EQ(fw::CoreNotifications().size(), 1u);
    EXPECT_EQ(fw::CoreNotifications()[0].hookName, "SensorProbeHook");
    fw::RemoveCore();
    EXPECT_TRUE(RemediumClient::IsSwitchOpened(2));  // no unload while running
    EXPECT_EQ(fw::CoreInstanceRequests(), 1);
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
