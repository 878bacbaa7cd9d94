// MessageCenterClient over the fake message centre: absent, appearing later,
// lacking its send entry, answering requests, and loaded from several
// threads at once.
#include "client/interface/messagecenterclient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "harness.h"
#include "simframework.h"
#include "simlog.h"
#include "support/fresh_process.h"
#include "support/log_matchers.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fw = sim::framework;

constexpr char kLoadFailed[] = "m_pRemediumCore is NULL";
constexpr char kNoSend[] = "m_pMessageCenterSendMessageFuncPtr is NULL";

std::vector<std::string> CentreLines() { return test::LogTexts("[MESSAGECENTER]"); }

// Sends GET_SENSOR_TYPE for imx766 into `reply`.
void AskSensorType(Message* reply) {
  Message request("GET_SENSOR_TYPE");
  request.m_data["sensor_name"].SetString("imx766");
  MessageCenterClient::SendMessage(request, reply);
}

class MessageCenterClientTest : public ::testing::Test {
 protected:
  sim::Phone phone_;
};

TEST_F(MessageCenterClientTest, MissingCentreIsRetriedAtEverySendAndLeavesTheReplyAlone) {
  EXPECT_IN_FRESH_PROCESS([] {
    Message reply("previous");
    reply.m_data["sensor_type"].SetString("kept");
    AskSensorType(&reply);
    // The first use loads once when the client is built and again before the
    // send; every later send retries once.
    EXPECT_THAT(CentreLines(), ElementsAre(kLoadFailed, kLoadFailed, kNoSend));
    sim::ClearLog();
    AskSensorType(&reply);
    EXPECT_THAT(CentreLines(), ElementsAre(kLoadFailed, kNoSend));
    for (const sim::LogLine& line : sim::LogLines()) EXPECT_EQ(line.priority, 6);
    EXPECT_EQ(reply.m_name, "previous");
    EXPECT_EQ(reply.m_data.at("sensor_type").GetString(), "kept");

    // Installed later, the centre is picked up at the next send and kept.
    fw::InstallMessageCenter();
    fw::SetSensorType("imx766", "rear_main");
    sim::ClearLog();
    AskSensorType(&reply);
    EXPECT_EQ(reply.m_data["sensor_type"].GetString(), "rear_main");
    fw::RemoveMessageCenter();
    AskSensorType(&reply);
    EXPECT_THAT(CentreLines(), IsEmpty());
    EXPECT_EQ(fw::MessageCenterRequests().size(), 2u);
  });
}

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
    fw::SetSensorType("imx766", "rear_main");
    fw::SetMostProbedSensor("rear_main", "imx766", 12);
    Message reply;
    AskSensorType(&reply);
    EXPECT_EQ(reply.m_data["sensor_type"].GetString(), "rear_main");

    Message mostProbed("GET_MOST_PROBE_SENSOR_NAME");
    mostProbed.m_data["sensor_type"].SetString("rear_main");
    mostProbed.m_data["record_count"].SetInt64(100);
    MessageCenterClient::SendMessage(mostProbed, &reply);
    EXPECT_EQ(mostProbed.m_data.at("sensor_type").GetString(), "rear_main");  // the caller's record is untouched
    EXPECT_EQ(reply.m_data.count("sensor_type"), 0u);
    EXPECT_EQ(reply.m_data.at("sensor_name").GetString(), "imx766");
    EXPECT_EQ(reply.m_data.at("sensor_name").GetType(), 3u);
    EXPECT_EQ(reply.m_data.at("record_count").GetInt64(), 12);

    const std::vector<fw::MessageCenterRequest> requests = fw::MessageCenterRequests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].name, "GET_SENSOR_TYPE");
    ASSERT_EQ(requests[0].data.size(), 1u);
    EXPECT_EQ(requests[0].data.at("sensor_name").type, 3u);
    EXPECT_EQ(requests[0].data.at("sensor_name").text, "imx766");
    EXPECT_EQ(requests[1].name, "GET_MOST_PROBE_SENSOR_NAME");
    ASSERT_EQ(requests[1].data.size(), 2u);
    EXPECT_EQ(requests[1].data.at("sensor_type").text, "rear_main");
    EXPECT_EQ(requests[1].data.at("record_count").type, 1u);
    EXPECT_EQ(requests[1].data.at("record_count").int64Value, 100);
    EXPECT_THAT(CentreLines(), IsEmpty());
  });
}

// HAL threads may send while the first load is still under way.
TEST_F(MessageCenterClientTest, ConcurrentSendsLoadOnceAndAllGetAnswers) {
  EXPECT_IN_FRESH_PROCESS([] {
    fw::InstallMessageCenter();
    fw::SetSensorType("imx766", "rear_main");
    constexpr int kThreads = 6;
    constexpr int kSends = 20;
    std::vector<int> answered(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([t, &answered] {
        for (int i = 0; i < kSends; ++i) {
          Message reply;
          AskSensorType(&reply);
          answered[t] += reply.m_data["sensor_type"].GetString() == "rear_main";
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_THAT(answered, ::testing::Each(kSends));
    EXPECT_EQ(fw::MessageCenterRequests().size(), size_t{kThreads * kSends});
    EXPECT_THAT(CentreLines(), IsEmpty());
  });
}

}  // namespace
