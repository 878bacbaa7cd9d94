// The simulated HAL's sensor and EEPROM side: the objects the probe and
// bring-up hooks read (built with the hooks' layout header), the hooked
// sensor and EEPROM functions with scripted results, and the kernel driver's
// side of the probe-result module parameter.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/hal/simhal.h"

namespace sim::hal {

inline constexpr char kProbeResultParameter[] = "/sys/module/camera/parameters/sensor_apply_settings_control";

// The object SensorProbe is called on: sensor name and (optionally) camera id.
class SensorProbeObject {
 public:
  SensorProbeObject(std::string sensorName, std::optional<uint16_t> cameraId);
  void* get() { return m_object.get(); }

 private:
  std::string m_name;
  uint16_t m_cameraId = 0;
  Object m_object{64};
  Object m_probeInfo{32};
  Object m_module{32};
  Object m_cameraInfo{40};
};

// The EEPROM data object of EEPROMDataProbe and ReadEEPROMDevice.
class EepromDataObject {
 public:
  EepromDataObject(uint16_t cameraId, const std::string& sensorName);
  ~EepromDataObject();
  void* get() { return m_object.get(); }
  uint32_t lastRetryFlag() const;

  EepromDataObject(const EepromDataObject&) = delete;
  EepromDataObject& operator=(const EepromDataObject&) = delete;

 private:
  Object m_object;
};

// ProbeEEPROM's HwSensorInfo, carrying the EEPROM's name down its pointer chain.
class HwSensorInfoObject {
 public:
  explicit HwSensorInfoObject(std::string eepromName);
  CamX::HwSensorInfo* get() { return static_cast<CamX::HwSensorInfo*>(m_info.get()); }

 private:
  std::string m_name;
  Object m_info{8};
  Object m_first{32};
  Object m_second{8};
  Object m_third{32};
};

// A sensor node of one camera (init, config and command-submission hooks).
class SensorNodeObject {
 public:
  explicit SensorNodeObject(uint32_t cameraId);
  ~SensorNodeObject();
  void* get() { return m_object.get(); }
  uint32_t initState() const;

  SensorNodeObject(const SensorNodeObject&) = delete;
  SensorNodeObject& operator=(const SensorNodeObject&) = delete;

 private:
  struct Pipeline;
  Pipeline* m_pipeline;
  Object m_node{16};
  Object m_object;
};

// CSLSensorI2CInfo with its slave address.
class SensorI2CInfoObject {
 public:
  explicit SensorI2CInfoObject(uint32_t slaveAddress);
  CSLSensorI2CInfo* get() { return static_cast<CSLSensorI2CInfo*>(m_object.get()); }
  uint32_t slaveAddress() const;

 private:
  Object m_object{16};
};

// The kernel driver's side of the probe-result parameter. The parameter file
// holds `values` as the driver shows them ("1,0,..."), created on the device.
void WriteKernelTable(const std::vector<int64_t>& values);
std::vector<int64_t> ReadKernelTable();
// Forgets what the EEPROM functions saw.
void ResetSensorHal();

// The hooked HAL functions of the probe, EEPROM and bring-up hooks. SensorProbe
// plays its scripted kernel result (see Outcome) as the driver would.
CamxResult SensorProbe(void* pThis, int* pArg1, int* pArg2);
CamxResult InitializeSensorDevice(void* pThis);
CamxResult LoadSensorInitConfigCmd(void* pThis);
CamxResult LoadSensorConfigCmds(void* pThis);
CamxResult SensorCreateAndSubmitCommand(void* pThis, unsigned int arg1, CamX::I2CRegSettingType settingType,
                                        CSLPacketOpcodesSensor opcode, unsigned int arg4, unsigned int arg5,
                                        const void* pData);
CamxResult CreateI2CInfoCmd(void* pThis, CSLSensorI2CInfo* pI2CInfo, unsigned short arg);
CamxResult EEPROMDataProbe(void* pThis);
CamxResult ProbeEEPROM(void* pThis, CamX::HwSensorInfo* pSensorInfo, const CamX::HwDeviceTypeInfo* pDeviceInfo);
CamxResult ReadEEPROMDevice(void* pThis);
CamxResult EEPROMVerifyChecksum(void* pThis, unsigned char* pData, int size);

// The EEPROM data the last EEPROMVerifyChecksum call saw (first 1024 bytes).
std::vector<uint8_t> LastChecksumData();
// The last-retry flag of the EEPROM object as EEPROMDataProbe saw it.
uint32_t LastEepromFlagSeen();
// The slave address CreateI2CInfoCmd found in its I2C info.
uint32_t LastSensorSlaveAddressSeen();

}  // namespace sim::hal
