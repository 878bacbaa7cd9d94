#include <cstring>
#include <mutex>

#include "hook/src/camxlayout.h"
#include "sim/hal/simlenspipelinehal.h"
#include "sim/platform/simmetadata.h"

namespace sim::hal {

namespace {

namespace Layout = CamX::Layout;

struct LensPipelineState {
  std::mutex mutex;
  uint16_t actuatorSlaveAddress = 0;
  uint32_t oisSlaveAddress = 0;
  GyroBatchSeen gyroBatch{};
  CSLMessageSeen cslMessage{};
  const void* captureRequest = nullptr;
};

LensPipelineState& State() {
  static auto* state = new LensPipelineState;
  return *state;
}

template <typename T>
size_t End(Layout::Field<T> field) {
  return field.offset + sizeof(T);
}

}  // namespace

ActuatorDriverDataObject::ActuatorDriverDataObject(std::optional<std::string> actuatorName, uint16_t slaveAddress)
    : m_name(actuatorName ? std::make_unique<std::string>(*actuatorName) : nullptr),
      m_object(End(Layout::kActuatorDriverDataSlaveAddress)) {
  Layout::Write(m_object.get(), Layout::kActuatorDriverDataName, m_name ? m_name->c_str() : nullptr);
  Layout::Write(m_object.get(), Layout::kActuatorDriverDataSlaveAddress, slaveAddress);
}

uint16_t ActuatorDriverDataObject::slaveAddress() const {
  return Layout::Read(m_object.get(), Layout::kActuatorDriverDataSlaveAddress);
}

OISI2CInfoObject::OISI2CInfoObject(uint32_t slaveAddress) : m_object(16) {
  Layout::Write(m_object.get(), Layout::kOISI2CInfoSlaveAddress, slaveAddress);
}

uint32_t OISI2CInfoObject::slaveAddress() const {
  return Layout::Read(m_object.get(), Layout::kOISI2CInfoSlaveAddress);
}

SensorEventBatch::SensorEventBatch(const std::vector<int64_t>& timestamps, int32_t sensorType) {
  int32_t sensor = 1;
  for (int64_t timestamp : timestamps) {
    auto event = std::make_unique<sensors_event_t>();
    event->version = sizeof(sensors_event_t);
    event->sensor = sensor++;
    event->type = sensorType;
    event->timestamp = timestamp;
    m_samples.push_back(event.get());
    m_events.push_back(std::move(event));
  }
}

std::vector<int64_t> SensorEventBatch::timestamps() const {
  std::vector<int64_t> values;
  for (const sensors_event_t* sample : m_samples) values.push_back(sample->timestamp);
  return values;
}

CSLMessageObject::CSLMessageObject(uint32_t type, uint64_t frameValue) : m_object(64) {
  Layout::Write(m_object.get(), Layout::kCSLMessageType, type);
  Layout::Write(m_object.get(), Layout::kCSLMessageFrameValue, frameValue);
}

uint32_t CSLMessageObject::type() const { return Layout::Read(m_object.get(), Layout::kCSLMessageType); }
uint64_t CSLMessageObject::frameValue() const { return Layout::Read(m_object.get(), Layout::kCSLMessageFrameValue); }
uint32_t CSLMessageObject::errorCode() const { return Layout::Read(m_object.get(), Layout::kCSLMessageErrorCode); }
uint32_t CSLMessageObject::errorWord() const { return Layout::Read(m_object.get(), Layout::kCSLMessageErrorWord); }

void RegisterRecordControlTag() { SetVendorTag("velora.video", "recordControl", kRecordControlTagLocation); }

// The size of camera3_capture_request_t; the settings pointer is at byte 8.
CaptureRequestObject::CaptureRequestObject() : m_object(64) {}

CaptureRequestObject::~CaptureRequestObject() {
  if (m_pSettings != nullptr) FreeMetadata(m_pSettings);
}

CaptureRequestObject& CaptureRequestObject::SetBytes(uint32_t tag, const std::vector<uint8_t>& bytes) {
  if (m_pSettings == nullptr) {
    m_pSettings = NewMetadata();
    Layout::Write(m_object.get(), Layout::kCaptureRequestSettings, static_cast<void*>(m_pSettings));
  }
  AddMetadataBytes(m_pSettings, tag, bytes);
  return *this;
}

void ActuatorData(void*, CamX::ActuatorDriverData* pActuatorDriverData) {
  {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().actuatorSlaveAddress = Layout::Read(pActuatorDriverData, Layout::kActuatorDriverDataSlaveAddress);
  }
  NextResult("ActuatorData");
}

CamxResult OISRegisterProvider(void*, void*, const CamX::NCSProviderCap*) { return NextResult("OISRegisterProvider"); }

CamxResult OISCreateI2CInfoCmd(void*, CSLOISI2CInfo* pI2CInfo, int) {
  {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().oisSlaveAddress = Layout::Read(pI2CInfo, Layout::kOISI2CInfoSlaveAddress);
  }
  return NextResult("OISCreateI2CInfoCmd");
}

CamxResult ReadLensPositionData(void*) { return NextResult("ReadLensPositionData"); }

CamxResult FormatLensPositionData(void*, CamX::OISLensPositionData*, unsigned char*, unsigned long) {
  return NextResult("FormatLensPositionData");
}

CamxResult PostGyroData(void*, CamX::NCSSensorType type, std::vector<sensors_event_t*>& samples) {
  GyroBatchSeen seen{static_cast<int32_t>(type), {}};
  for (const sensors_event_t* sample : samples) seen.timestamps.push_back(sample->timestamp);
  {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().gyroBatch = std::move(seen);
  }
  return NextResult("PostGyroData");
}

void CSLMessageHandler(void* pUserData, CSLMessage* pMessage) {
  CSLMessageSeen seen{pUserData, pMessage, 0, 0, 0};
  if (pMessage != nullptr) {
    seen.type = Layout::Read(pMessage, Layout::kCSLMessageType);
    seen.errorCode = Layout::Read(pMessage, Layout::kCSLMessageErrorCode);
    seen.errorWord = Layout::Read(pMessage, Layout::kCSLMessageErrorWord);
  }
  {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().cslMessage = seen;
  }
  NextResult("CSLMessageHandler");
}

CamxResult ProcessCaptureRequest(void*, CamX::Camera3CaptureRequest* pRequest) {
  {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().captureRequest = pRequest;
  }
  return NextResult("ProcessCaptureRequest");
}

uint16_t LastActuatorSlaveAddressSeen() {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().actuatorSlaveAddress;
}

uint32_t LastOISSlaveAddressSeen() {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().oisSlaveAddress;
}

GyroBatchSeen LastGyroBatchSeen() {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().gyroBatch;
}

CSLMessageSeen LastCSLMessageSeen() {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().cslMessage;
}

const void* LastCaptureRequestSeen() {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().captureRequest;
}

}  // namespace sim::hal
