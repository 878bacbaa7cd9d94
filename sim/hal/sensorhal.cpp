#include <cstring>
#include <mutex>
#include <new>
#include <sstream>

#include "hook/src/camxlayout.h"
#include "hook/src/kernelchannel.h"
#include "sim/hal/simsensorhal.h"
#include "sim/platform/simdevice.h"

namespace sim::hal {

namespace {

namespace Layout = CamX::Layout;

struct SensorHalState {
  std::mutex mutex;
  std::vector<uint8_t> lastChecksumData;
  uint32_t lastEepromFlag = 0;
  uint32_t lastSlaveAddress = 0;
};

SensorHalState& State() {
  static auto* state = new SensorHalState;
  return *state;
}

template <typename T>
void Put(Object& object, Layout::Field<T> field, T value) {
  Layout::Write(object.get(), field, value);
}

}  // namespace

SensorProbeObject::SensorProbeObject(std::string sensorName, std::optional<uint16_t> cameraId)
    : m_name(std::move(sensorName)), m_cameraId(cameraId.value_or(0)) {
  Put(m_object, Layout::kSensorProbeInfo, static_cast<const void*>(m_probeInfo.get()));
  Put(m_probeInfo, Layout::kProbeInfoModule, static_cast<const void*>(m_module.get()));
  Put(m_module, Layout::kModuleSensorName, m_name.c_str());
  Put(m_object, Layout::kSensorProbeCameraInfo, static_cast<const void*>(m_cameraInfo.get()));
  Put(m_cameraInfo, Layout::kCameraInfoCameraId, cameraId ? static_cast<const uint16_t*>(&m_cameraId) : nullptr);
}

EepromDataObject::EepromDataObject(uint16_t cameraId, const std::string& sensorName)
    : m_object(Layout::kEepromDataLastRetryFlag.offset + sizeof(uint32_t)) {
  Put(m_object, Layout::kEepromDataCameraId, cameraId);
  new (static_cast<unsigned char*>(m_object.get()) + Layout::kEepromDataSensorName.offset) std::string(sensorName);
}

EepromDataObject::~EepromDataObject() {
  using std::string;
  reinterpret_cast<string*>(static_cast<unsigned char*>(m_object.get()) + Layout::kEepromDataSensorName.offset)
      ->~string();
}

uint32_t EepromDataObject::lastRetryFlag() const {
  return Layout::Read(m_object.get(), Layout::kEepromDataLastRetryFlag);
}

HwSensorInfoObject::HwSensorInfoObject(std::string eepromName) : m_name(std::move(eepromName)) {
  Put(m_info, Layout::kHwSensorInfoFirst, static_cast<const void*>(m_first.get()));
  Put(m_first, Layout::kHwSensorInfoSecond, static_cast<const void*>(m_second.get()));
  Put(m_second, Layout::kHwSensorInfoThird, static_cast<const void*>(m_third.get()));
  Put(m_third, Layout::kHwSensorInfoEepromName, m_name.c_str());
}

// The simulated pipeline answers its camera id from its first virtual slot.
struct SensorNodeObject::Pipeline final : CamX::Pipeline {
  explicit Pipeline(uint32_t id) : cameraId(id) {}
  uint32_t GetCameraId() override { return cameraId; }
  uint32_t cameraId;
};

SensorNodeObject::SensorNodeObject(uint32_t cameraId)
    : m_pipeline(new Pipeline(cameraId)), m_object(Layout::kSensorNodeNode.offset + sizeof(void*)) {
  // Simulated nodes keep their pipeline pointer first (see Node::GetPipeline).
  CamX::Pipeline* pipeline = m_pipeline;
  std::memcpy(m_node.get(), &pipeline, sizeof(pipeline));
  Put(m_object, Layout::kSensorNodeNode, static_cast<const CamX::Node*>(m_node.get()));
}

SensorNodeObject::~SensorNodeObject() { delete m_pipeline; }

uint32_t SensorNodeObject::initState() const { return Layout::Read(m_object.get(), Layout::kSensorNodeInitState); }

SensorI2CInfoObject::SensorI2CInfoObject(uint32_t slaveAddress) {
  Put(m_object, Layout::kSensorI2CInfoSlaveAddress, slaveAddress);
}

uint32_t SensorI2CInfoObject::slaveAddress() const {
  return Layout::Read(m_object.get(), Layout::kSensorI2CInfoSlaveAddress);
}

void WriteKernelTable(const std::vector<int64_t>& values) {
  std::ostringstream text;
  for (size_t i = 0; i < values.size(); ++i) text << (i ? "," : "") << values[i];
  sim::WriteDeviceFile(kProbeResultParameter, text.str());
}

std::vector<int64_t> ReadKernelTable() {
  std::vector<int64_t> values;
  std::istringstream text(sim::ReadDeviceFile(kProbeResultParameter));
  int64_t value = 0;
  while (text >> value) {
    values.push_back(value);
    if (text.peek() == ',') text.get();
  }
  return values;
}

void ResetSensorHal() {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().lastChecksumData.clear();
  State().lastEepromFlag = 0;
  State().lastSlaveAddress = 0;
}

CamxResult SensorProbe(void* pThis, int*, int*) {
  const Outcome outcome = NextOutcome("SensorProbe");
  const uint16_t* pCameraId = Layout::ReadSensorProbeCameraIdPointer(pThis);
  if (outcome.kernel && pCameraId != nullptr) {
    std::vector<int64_t> table = ReadKernelTable();
    if (table.size() >= CamX::kProbeResultTableSize && *pCameraId < CamX::kProbeResultBlockSize) {
      CamX::KmdResult(table, *pCameraId) = *outcome.kernel;
      WriteKernelTable(table);
      sim::Record("kernel",
                  "kmd result of camera " + std::to_string(*pCameraId) + ": " + std::to_string(*outcome.kernel));
    }
  }
  return outcome.result;
}

CamxResult InitializeSensorDevice(void*) { return NextResult("InitializeSensorDevice"); }
CamxResult LoadSensorInitConfigCmd(void*) { return NextResult("LoadSensorInitConfigCmd"); }
CamxResult LoadSensorConfigCmds(void*) { return NextResult("LoadSensorConfigCmds"); }

CamxResult SensorCreateAndSubmitCommand(void*, unsigned int, CamX::I2CRegSettingType, CSLPacketOpcodesSensor,
                                        unsigned int, unsigned int, const void*) {
  return NextResult("SensorCreateAndSubmitCommand");
}

CamxResult CreateI2CInfoCmd(void*, CSLSensorI2CInfo* pI2CInfo, unsigned short) {
  if (pI2CInfo != nullptr) {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().lastSlaveAddress = Layout::Read(pI2CInfo, Layout::kSensorI2CInfoSlaveAddress);
  }
  return NextResult("CreateI2CInfoCmd");
}

CamxResult EEPROMDataProbe(void* pThis) {
  {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().lastEepromFlag = Layout::Read(pThis, Layout::kEepromDataLastRetryFlag);
  }
  return NextResult("EEPROMDataProbe");
}

CamxResult ProbeEEPROM(void*, CamX::HwSensorInfo*, const CamX::HwDeviceTypeInfo*) { return NextResult("ProbeEEPROM"); }
CamxResult ReadEEPROMDevice(void*) { return NextResult("ReadEEPROMDevice"); }

CamxResult EEPROMVerifyChecksum(void*, unsigned char* pData, int) {
  {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().lastChecksumData.clear();
    if (pData != nullptr) State().lastChecksumData.assign(pData, pData + 1024);
  }
  return NextResult("EEPROMVerifyChecksum");
}

std::vector<uint8_t> LastChecksumData() {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().lastChecksumData;
}

uint32_t LastEepromFlagSeen() {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().lastEepromFlag;
}

uint32_t LastSensorSlaveAddressSeen() {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().lastSlaveAddress;
}

}  // namespace sim::hal
