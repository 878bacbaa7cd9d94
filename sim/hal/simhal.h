// The simulated CamX HAL (camera.qcom.so): the HAL functions the proxies
// replace, with results a test scripts call by call, the HAL services the
// proxies call, and HAL objects built with the hooks' layout header.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "hook/src/camxhal.h"

namespace sim::hal {

// Results of a hooked HAL function, consumed call by call; when the script
// runs out the function returns its default (0 unless set).
void ScriptResults(const std::string& function, std::vector<CamxResult> results);
void SetDefaultResult(const std::string& function, CamxResult result);
// Names of the hooked HAL functions called, in order.
std::vector<std::string> Calls();
int CallCount(const std::string& function);
// Forgets scripts, calls, vendor tags and the sensor side's scripted probes.
void Reset();
// Records a call of a hooked HAL function and returns its scripted result
// (used by every simulated HAL function).
CamxResult NextResult(const std::string& function);

// Vendor tag locations answered by QueryVendorTagLocation.
void SetVendorTag(const std::string& section, const std::string& name, uint32_t location);

// A HAL object: zero-filled bytes of the HAL build's size, aligned for any field.
class Object {
 public:
  explicit Object(size_t size);
  void* get() const { return m_bytes.get(); }
  size_t size() const { return m_size; }

 private:
  struct Deleter {
    void operator()(unsigned char* bytes) const;
  };
  std::unique_ptr<unsigned char, Deleter> m_bytes;
  size_t m_size;
};

// CamX::SensorModuleStaticCaps carrying `slotId`.
Object MakeStaticCaps(uint32_t slotId);

// The hooked HAL functions (what the framework core installs the proxies over).
CamxResult GetStaticCaps(void* pThis, CamX::SensorModuleStaticCaps* pStaticCaps,
                         CSLSensorCapability* pSensorCapability,
                         CamX::TuningDataManager* pTuningManager, unsigned int cameraId);

}  // namespace sim::hal
