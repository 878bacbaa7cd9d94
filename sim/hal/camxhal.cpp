#include "sim/hal/simhal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>

#include "hook/src/camxlayout.h"
#include "sim/platform/simdevice.h"
#include "sim/hal/simsensorhal.h"

namespace sim::hal {
namespace {

struct HalState {
  std::mutex mutex;
  std::map<std::string, std::deque<CamxResult>> scripts;
  std::map<std::string, CamxResult> defaults;
  std::vector<std::string> calls;
  std::map<std::pair<std::string, std::string>, uint32_t> vendorTags;
};

HalState& State() {
  static auto* state = new HalState;
  return *state;
}

}  // namespace

// Records the call and returns its scripted result.
CamxResult NextResult(const std::string& function) {
  CamxResult result = 0;
  {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().calls.push_back(function);
    auto& script = State().scripts[function];
    if (!script.empty()) {
      result = script.front();
      script.pop_front();
    } else if (auto it = State().defaults.find(function); it != State().defaults.end()) {
      result = it->second;
    }
  }
  sim::Record("hal", function + " -> " + std::to_string(result));
  return result;
}

void ScriptResults(const std::string& function, std::vector<CamxResult> results) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().scripts[function].assign(results.begin(), results.end());
}

void SetDefaultResult(const std::string& function, CamxResult result) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().defaults[function] = result;
}

std::vector<std::string> Calls() {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().calls;
}

int CallCount(const std::string& function) {
  int count = 0;
  for (const std::string& call : Calls()) count += call == function ? 1 : 0;
  return count;
}

void Reset() {
  ResetSensorHal();
  std::lock_guard<std::mutex> lock(State().mutex);
  State().scripts.clear();
  State().defaults.clear();
  State().calls.clear();
  State().vendorTags.clear();
}

void SetVendorTag(const std::string& section, const std::string& name, uint32_t location) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().vendorTags[{section, name}] = location;
}

Object::Object(size_t size)
    : m_bytes(static_cast<unsigned char*>(std::aligned_alloc(16, (size + 15) / 16 * 16))), m_size(size) {
  std::memset(m_bytes.get(), 0, size);
}

void Object::Deleter::operator()(unsigned char* bytes) const { std::free(bytes); }

Object MakeStaticCaps(uint32_t slotId) {
  Object caps(CamX::Layout::kStaticCapsSlotId.offset + sizeof(uint32_t));
  CamX::Layout::Write(caps.get(), CamX::Layout::kStaticCapsSlotId, slotId);
  return caps;
}

CamxResult GetStaticCaps(void*, CamX::SensorModuleStaticCaps*, CSLSensorCapability*,
                         CamX::TuningDataManager*, unsigned int) {
  return NextResult("GetStaticCaps");
}

}  // namespace sim::hal

namespace CamX {

// Simulated nodes keep their pipeline pointer first.
Pipeline* Node::GetPipeline() const {
  Pipeline* pipeline = nullptr;
  std::memcpy(&pipeline, this, sizeof(pipeline));
  return pipeline;
}

void OsUtils::StrError(char* pErrorMsg, size_t errorMsgSize, int errorNum) {
  if (pErrorMsg == nullptr || errorMsgSize == 0) return;
  std::snprintf(pErrorMsg, errorMsgSize, "%s", std::strerror(errorNum));
}

CamxResult VendorTagManager::QueryVendorTagLocation(const char* pSectionName, const char* pTagName,
                                                    uint32_t* pTagLocation) {
  std::lock_guard<std::mutex> lock(sim::hal::State().mutex);
  auto it = sim::hal::State().vendorTags.find({pSectionName, pTagName});
  if (it == sim::hal::State().vendorTags.end()) return CamxResultEFailed;
  *pTagLocation = it->second;
  return CamxResultSuccess;
}

}  // namespace CamX
