// The simulated HAL's lens, OIS, gyro and pipeline side: the objects the
// actuator, OIS, gyro, CSL message and capture request hooks read and change
// (built with the hooks' layout header), and the hooked HAL functions with
// scripted results. Each HAL function also keeps what it was handed, so a
// test can check what the HAL saw after a proxy ran.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <hardware/sensors.h>
#include <system/camera_metadata.h>

#include "sim/hal/simhal.h"

namespace sim::hal {

// CamX::ActuatorDriverData with its actuator name (owned; none for a null
// name pointer) and I2C slave address.
class ActuatorDriverDataObject {
 public:
  ActuatorDriverDataObject(std::optional<std::string> actuatorName, uint16_t slaveAddress);
  CamX::ActuatorDriverData* get() const { return static_cast<CamX::ActuatorDriverData*>(m_object.get()); }
  uint16_t slaveAddress() const;

 private:
  std::unique_ptr<std::string> m_name;
  Object m_object;
};

// CSLOISI2CInfo with its slave address.
class OISI2CInfoObject {
 public:
  explicit OISI2CInfoObject(uint32_t slaveAddress);
  CSLOISI2CInfo* get() const { return static_cast<CSLOISI2CInfo*>(m_object.get()); }
  uint32_t slaveAddress() const;

 private:
  Object m_object;
};

// A batch of sensor events as the HAL's sensor service delivers it: one
// sensors_event_t per timestamp (gyro samples unless told otherwise), handed
// over as a vector of pointers.
class SensorEventBatch {
 public:
  explicit SensorEventBatch(const std::vector<int64_t>& timestamps, int32_t sensorType = SENSOR_TYPE_GYROSCOPE);
  std::vector<sensors_event_t*>& samples() { return m_samples; }
  std::vector<int64_t> timestamps() const;

  SensorEventBatch(const SensorEventBatch&) = delete;
  SensorEventBatch& operator=(const SensorEventBatch&) = delete;

 private:
  std::vector<std::unique_ptr<sensors_event_t>> m_events;
  std::vector<sensors_event_t*> m_samples;
};

// CSLMessage as the kernel interface sends it: kind and the 64-bit value.
class CSLMessageObject {
 public:
  CSLMessageObject(uint32_t type, uint64_t frameValue);
  CSLMessage* get() const { return static_cast<CSLMessage*>(m_object.get()); }
  uint32_t type() const;
  uint64_t frameValue() const;
  uint32_t errorCode() const;  // the low half of the frame value
  uint32_t errorWord() const;

 private:
  Object m_object;
};

// Where the simulated vendor tag manager puts "velora.video"/"recordControl"
// once it is registered.
inline constexpr uint32_t kRecordControlTagLocation = 0x80A70000;
void RegisterRecordControlTag();

// CamX::Camera3CaptureRequest with its settings metadata (owned), or none.
class CaptureRequestObject {
 public:
  CaptureRequestObject();  // a request without settings
  ~CaptureRequestObject();
  CamX::Camera3CaptureRequest* get() const { return static_cast<CamX::Camera3CaptureRequest*>(m_object.get()); }
  // Adds an entry of bytes to the settings, creating them on first use.
  CaptureRequestObject& SetBytes(uint32_t tag, const std::vector<uint8_t>& bytes);
  // The record-control tag at kRecordControlTagLocation.
  CaptureRequestObject& SetRecordControl(uint8_t value) { return SetBytes(kRecordControlTagLocation, {value}); }

  CaptureRequestObject(const CaptureRequestObject&) = delete;
  CaptureRequestObject& operator=(const CaptureRequestObject&) = delete;

 private:
  camera_metadata_t* m_pSettings = nullptr;
  Object m_object;
};

// The hooked HAL functions of the lens, OIS, gyro and pipeline hooks.
void ActuatorData(void* pThis, CamX::ActuatorDriverData* pActuatorDriverData);
CamxResult OISRegisterProvider(void* pThis, void* pUnusedArg, const CamX::NCSProviderCap* pProviderCap);
CamxResult OISCreateI2CInfoCmd(void* pThis, CSLOISI2CInfo* pI2CInfo, int parameter);
CamxResult ReadLensPositionData(void* pThis);
CamxResult FormatLensPositionData(void* pThis, CamX::OISLensPositionData* pLensPositionData, unsigned char* pBuffer,
                                  unsigned long bufferSize);
CamxResult PostGyroData(void* pThis, CamX::NCSSensorType type, std::vector<sensors_event_t*>& samples);
void CSLMessageHandler(void* pUserData, CSLMessage* pMessage);
CamxResult ProcessCaptureRequest(void* pThis, CamX::Camera3CaptureRequest* pRequest);

// What the last call of each function was handed.
uint16_t LastActuatorSlaveAddressSeen();
uint32_t LastOISSlaveAddressSeen();
struct GyroBatchSeen {
  int32_t type;
  std::vector<int64_t> timestamps;
};
GyroBatchSeen LastGyroBatchSeen();
struct CSLMessageSeen {
  const void* userData;
  const void* message;
  uint32_t type;  // 0 when the message pointer was null
  uint32_t errorCode;
  uint32_t errorWord;
};
CSLMessageSeen LastCSLMessageSeen();
const void* LastCaptureRequestSeen();

}  // namespace sim::hal
