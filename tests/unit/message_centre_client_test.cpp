// MessageCenterClient over the fake message centre: lacking its send entry,
// answering requests. A centre that is absent or installed later is shown by
// the framework_absent scenario; one loaded from several camera threads at
// once, by the stress test under ThreadSanitizer.
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/interface/messagecenterclient.h"
#include "sim/framework/simframework.h"
#include "sim/platform/simlog.h"
#include "tests/support/fresh_process.h"
#include "tests/support/log_matchers.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fw = sim::framework;

constexpr char kNoSend[] = "m_pMessageCenterSendMessageFuncPtr is NULL";

std::vector<std::string> CentreLines() { return test::LogTexts("[MESSAGECENTER]"); }

// Sends GET_SENSOR_TYPE for imx766 into `reply`.
void AskSensorType(Message* reply) {
  Message request("GET_SENSOR_TYPE");
  request.m_data["sensor_name"].SetString("imx766");
  MessageCenterClient::SendMessage(request, reply);
}

using MessageCenterClientTest = test::PhoneTest;

TEST_F(MessageCenterClientTest, CentreWithoutSendEntryCountsAsLoadedAndIsNotRetried) {
  EXPECT_IN_FRESH_PROCESS([] {
    fw::InstallMessageCenterWithoutSend();
    Message reply;
    AskSensorType(&reply);
    AskSensorType(&reply);
    fw::InstallMessageCenter();  // a complete centre installed afterwards is never looked at
    AskSensorType(&reply);
    EXPECT_THAT(CentreLines(), ElementsAre(kNoSend, kNoSend, kNoSend));
    EXPECT_THAT(fw::MessageCenterRequests(), IsEmpty());
  });
}

TEST_F(MessageCenterClientTest, RequestsReachTheCentreTypedAndRepliesReplaceTheRecord) {
  EXPECT_IN_FRESH_PROCESS([] {
    fw::InstallMessageCenter();
    fw::SetMostProbedSensor("rear_main", "imx766", 12);
    Message mostProbed("GET_MOST_PROBE_SENSOR_NAME");
    Message reply;
    reply.m_data["sensor_type"].SetString("stale");
    mostProbed.m_data["sensor_type"].SetString("rear_main");
    mostProbed.m_data["record_count"].SetInt64(100);
    MessageCenterClient::SendMessage(mostProbed, &reply);
    EXPECT_EQ(mostProbed.m_data.at("sensor_type").GetString(), "rear_main");  // the caller's record is untouched
    EXPECT_EQ(reply.m_data.count("sensor_type"), 0u);
    EXPECT_EQ(reply.m_data.at("sensor_name").GetString(), "imx766");
    EXPECT_EQ(reply.m_data.at("sensor_name").GetType(), 3u);
    EXPECT_EQ(reply.m_data.at("record_count").GetInt64(), 12);
    ASSERT_EQ(fw::MessageCenterRequests().size(), 1u);
    const auto data = fw::MessageCenterRequests()[0].data;  // the values are pinned by the golden transcripts
    EXPECT_EQ(data.at("sensor_type").type, 3u);
    EXPECT_EQ(data.at("record_count").type, 1u);
    EXPECT_THAT(CentreLines(), IsEmpty());
  });
}

}  // namespace
