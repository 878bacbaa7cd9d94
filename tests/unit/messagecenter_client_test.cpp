// MessageCenterClient over the fake message centre: absent, appearing later,
// lacking its send entry, and answering requests.
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

Message SensorTypeRequest(const std::string& sensorName) {
  Message request("GET_SENSOR_TYPE");
  request.m_data["sensor_name"].SetString(sensorName);
  return request;
}

Message MostProbedRequest(const std::string& type) {
  Message request("GET_MOST_PROBE_SENSOR_NAME");
  request.m_data["sensor_type"].SetString(type);
  request.m_data["record_count"].SetInt64(100);
  return request;
}

class MessageCenterClientTest : public ::testing::Test {
 protected:
  sim::Phone phone_;
};

TEST_F(MessageCenterClientTest, MissingCentreLogsLoadAndSendErrorsAndLeavesReplyAlone) {
  EXPECT_IN_FRESH_PROCESS([] {
    Message reply("previous");
    reply.m_data["sensor_type"].SetString("kept");
    MessageCenterClient::SendMessage(SensorTypeRequest("imx766"), &reply);
    // The first use loads once when the client is built and again before the
    // send; every later send retries once.
    EXPECT_THAT(CentreLines(), ElementsAre(kLoadFailed, kLoadFailed, kNoSend));
    sim::ClearLog();
    MessageCenterClient::SendMessage(SensorTypeRequest("imx766"), &reply);
    EXPECT_THAT(CentreLines(), ElementsAre(kLoadFailed, kNoSend));
    for (const sim::LogLine& line : sim::LogLines()) EXPECT_EQ(line.priority, 6);
    EXPECT_EQ(reply.m_name, "previous");
    EXPECT_EQ(reply.m_data.at("sensor_type").GetString(), "kept");
  });
}

TEST_F(MessageCenterClientTest, CentreInstalledLaterIsPickedUpAtTheNextSend) {
  EXPECT_IN_FRESH_PROCESS([] {
    Message reply;
    MessageCenterClient::SendMessage(SensorTypeRequest("imx766"), &reply);
    fw::InstallMessageCenter();
    fw::SetSensorType("imx766", "rear_main");
    sim::ClearLog();
    MessageCenterClient::SendMessage(SensorTypeRequest("imx766"), &reply);
    EXPECT_THAT(CentreLines(), IsEmpty());
    EXPECT_EQ(reply.m_data["sensor_type"].GetString(), "rear_main");
    // Loaded for good: removing the file changes nothing in this process.
    fw::RemoveMessageCenter();
    MessageCenterClient::SendMessage(SensorTypeRequest("imx766"), &reply);
    EXPECT_THAT(CentreLines(), IsEmpty());
    EXPECT_EQ(fw::MessageCenterRequests().size(), 2u);
  });
}

TEST_F(MessageCenterClientTest, CentreWithoutSendEntryCountsAsLoadedAndIsNotRetried) {
  EXPECT_IN_FRESH_PROCESS([] {
    fw::InstallMessageCenterWithoutSend();
    Message reply;
    MessageCenterClient::SendMessage(SensorTypeRequest("imx766"), &reply);
    MessageCenterClient::SendMessage(SensorTypeRequest("imx766"), &reply);
    EXPECT_THAT(CentreLines(), ElementsAre(kNoSend, kNoSend));
    // A complete centre installed afterwards is never looked at.
    fw::InstallMessageCenter();
    MessageCenterClient::SendMessage(SensorTypeRequest("imx766"), &reply);
    EXPECT_THAT(CentreLines(), ElementsAre(kNoSend, kNoSend, kNoSend));
    EXPECT_THAT(fw::MessageCenterRequests(), IsEmpty());
  });
}

TEST_F(MessageCenterClientTest, RequestsReachTheCentreWithTheirTypedEntriesAndRepliesComeBack) {
  EXPECT_IN_FRESH_PROCESS([] {
    fw::InstallMessageCenter();
    fw::SetSensorType("imx766", "rear_main");
    fw::SetMostProbedSensor("rear_main", "imx766", 12);

    const Message typeRequest = SensorTypeRequest("imx766");
    Message reply;
    MessageCenterClient::SendMessage(typeRequest, &reply);
    EXPECT_EQ(reply.m_data["sensor_type"].GetString(), "rear_main");
    EXPECT_EQ(typeRequest.m_data.at("sensor_name").GetString(), "imx766");  // the caller's record is untouched

    // The same reply record is reused: the second answer replaces the first.
    MessageCenterClient::SendMessage(MostProbedRequest("rear_main"), &reply);
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
          MessageCenterClient::SendMessage(SensorTypeRequest("imx766"), &reply);
          if (reply.m_data["sensor_type"].GetString() == "rear_main") ++answered[t];
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    for (int count : answered) EXPECT_EQ(count, kSends);
    EXPECT_EQ(fw::MessageCenterRequests().size(), static_cast<size_t>(kThreads * kSends));
    EXPECT_THAT(CentreLines(), IsEmpty());
  });
}

}  // namespace
