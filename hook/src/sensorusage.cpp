#include "hook/src/sensorusage.h"

#include "client/interface/message.h"
#include "client/interface/messagecenterclient.h"

namespace CamX {

namespace {

constexpr int64_t kMostProbedRecordCount = 100;

}  // namespace

SensorUsage QuerySensorUsage(const std::string& sensorName, bool carryFirstRequest) {
  SensorUsage usage;
  Message reply;

  Message request("GET_SENSOR_TYPE");
  request.m_data["sensor_name"].SetString(sensorName);
  MessageCenterClient::SendMessage(request, &reply);
  usage.sensorType = reply.m_data["sensor_type"].GetString();

  Message freshRequest;
  Message& second = carryFirstRequest ? request : freshRequest;
  second.m_name = "GET_MOST_PROBE_SENSOR_NAME";
  second.m_data["sensor_type"].SetString(usage.sensorType);
  second.m_data["record_count"].SetInt64(kMostProbedRecordCount);
  MessageCenterClient::SendMessage(second, &reply);
  usage.mostProbedName = reply.m_data["sensor_name"].GetString();
  usage.recordCount = reply.m_data["record_count"].GetInt64();

  if (!usage.mostProbedName.empty() && usage.recordCount >= 1 && usage.mostProbedName == sensorName) {
    usage.frequentlyUsedSensor = true;
    usage.neverBeenSuccessfullyProbed = false;
  } else {
    usage.frequentlyUsedSensor = false;
    usage.neverBeenSuccessfullyProbed = usage.mostProbedName.empty();
  }
  return usage;
}

}  // namespace CamX
