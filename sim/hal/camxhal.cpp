#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <utility>

#include "hook/src/camxlayout.h"
#include "sim/hal/simhal.h"
#include "sim/hal/simsensorhal.h"
#include "sim/platform/simdevice.h"

namespace sim::hal {
namespace {

struct HalState {
  std::mutex mutex;
  std::map<std::string, std::deque<Outcome>> scripts;
  std::map<std::string, Outcome> defaults;
  std::vector<CallResult> calls;
  std::map<std::pair<std::string, std::string>, uint32_t> vendorTags;
};

HalState& State() {
  static auto* state = new HalState;
  return *state;
}

}  // namespace

Outcome NextOutcome(const std::string& function) {
  Outcome outcome;
  {
    std::lock_guard<std::mutex> lock(State().mutex);
    auto& script = State().scripts[function];
    if (!script.empty()) {
      outcome = script.front();
      script.pop_front();
    } else if (auto it = State().defaults.find(function); it != State().defaults.end()) {
      outcome = it->second;
    }
    State().calls.push_back({function, outcome.result});
  }
  sim::Record("hal", function + " -> " + std::to_string(outcome.result));
  return outcome;
}

void ScriptResults(const std::string& function, std::vector<Outcome> outcomes) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().scripts[function].assign(outcomes.begin(), outcomes.end());
}

void SetDefaultResult(const std::string& function, Outcome outcome) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().defaults[function] = outcome;
}

void Unscript(const std::string& function) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().scripts.erase(function);
  State().defaults.erase(function);
}

std::vector<std::string> Calls() {
  std::vector<std::string> names;
  for (const CallResult& call : CallResults()) names.push_back(call.function);
  return names;
}

std::vector<CallResult> CallResults(size_t from) {
  std::lock_guard<std::mutex> lock(State().mutex);
  return sim::Tail(State().calls, from);
}

std::vector<CallResult> TakeCallResults() {
  std::lock_guard<std::mutex> lock(State().mutex);
  return std::exchange(State().calls, {});
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

void ClearVendorTags() {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().vendorTags.clear();
}

void SetVendorTag(const std::string& section, const std::string& name, uint32_t location) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().vendorTags[{section, name}] = location;
}

// calloc: a large object comes from fresh zero pages, which are touched only
// where the caller reads or writes (a static-caps object is over 300 KB of
// which a call uses a few bytes). malloc's alignment covers any field; should
// an allocator give less, the object is allocated aligned and cleared.
Object::Object(size_t size)
    : m_bytes(static_cast<unsigned char*>(std::calloc((size + 15) / 16 * 16, 1))), m_size(size) {
  if (reinterpret_cast<uintptr_t>(m_bytes.get()) % 16 != 0) {
    m_bytes.reset(static_cast<unsigned char*>(std::aligned_alloc(16, (size + 15) / 16 * 16)));
    std::memset(m_bytes.get(), 0, size);
  }
}

void Object::Deleter::operator()(unsigned char* bytes) const { std::free(bytes); }

Object MakeStaticCaps(uint32_t slotId) {
  Object caps(CamX::Layout::kStaticCapsSlotId.offset + sizeof(uint32_t));
  CamX::Layout::Write(caps.get(), CamX::Layout::kStaticCapsSlotId, slotId);
  return caps;
}

CamxResult GetStaticCaps(void*, CamX::SensorModuleStaticCaps*, CSLSensorCapability*, CamX::TuningDataManager*,
                         unsigned int) {
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
