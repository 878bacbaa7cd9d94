// The simulated CamX HAL (camera.qcom.so): the HAL functions the proxies
// replace, with results a test scripts call by call, the HAL services the
// proxies call, and HAL objects built with the hooks' layout header.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hook/src/camxhal.h"

namespace sim::hal {

// What one call of a hooked HAL function gives: its result and, for
// SensorProbe, what the kernel reports during it (the "kmd result", written at
// index camera id + 32 of the probe-result parameter before the call returns;
// none: the kernel writes nothing).
struct Outcome {
  Outcome(CamxResult callResult = 0, std::optional<int64_t> kernelResult = std::nullopt)
      : result(callResult), kernel(kernelResult) {}
  CamxResult result;
  std::optional<int64_t> kernel;
};
// Outcomes of a hooked HAL function, consumed call by call; when the script
// runs out each call gives the default (result 0, no kernel result, unless set).
void ScriptResults(const std::string& function, std::vector<Outcome> outcomes);
void SetDefaultResult(const std::string& function, Outcome outcome);
// Forgets the function's script and default.
void Unscript(const std::string& function);
// Names of the hooked HAL functions called, in order.
std::vector<std::string> Calls();
int CallCount(const std::string& function);
// The calls from the `from`-th on, with what each returned.
struct CallResult {
  std::string function;
  CamxResult result;
};
std::vector<CallResult> CallResults(size_t from = 0);
std::vector<CallResult> TakeCallResults();  // the calls so far, which are then forgotten
// Forgets scripts, calls, vendor tags and what the HAL functions saw.
void Reset();
// Records a call of a hooked HAL function and returns its scripted outcome
// (used by every simulated HAL function).
Outcome NextOutcome(const std::string& function);
inline CamxResult NextResult(const std::string& function) { return NextOutcome(function).result; }

// Vendor tag locations answered by QueryVendorTagLocation.
void SetVendorTag(const std::string& section, const std::string& name, uint32_t location);
void ClearVendorTags();

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
CamxResult GetStaticCaps(void* pThis, CamX::SensorModuleStaticCaps* pStaticCaps, CSLSensorCapability* pSensorCapability,
                         CamX::TuningDataManager* pTuningManager, unsigned int cameraId);

}  // namespace sim::hal
