// libshadowhook stand-in: answers the three calls a proxy makes from a registry
// that the test or simulator fills in the installer's place.
#include <cstdio>
#include <map>
#include <mutex>

#include <shadowhook.h>

#include "sim/platform/simdevice.h"
#include "sim/platform/simshadowhook.h"

namespace {

struct HookState {
  std::mutex mutex;
  std::map<void*, void*> previous;
  int mode = SHADOWHOOK_MODE_SHARED;
  std::vector<sim::HookStackCall> calls;
};

HookState& State() {
  static auto* state = new HookState;
  return *state;
}

std::string Hex(void* address) {
  char text[32];
  std::snprintf(text, sizeof(text), "%p", address);
  return text;
}

}  // namespace

extern "C" {

void* shadowhook_get_prev_func(void* func) {
  void* previous = nullptr;
  {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().calls.push_back({sim::HookStackCall::kGetPrevFunc, func});
    auto it = State().previous.find(func);
    if (it != State().previous.end()) previous = it->second;
  }
  sim::Record("shadowhook", "get_prev_func " + Hex(func));
  return previous;
}

shadowhook_mode_t shadowhook_get_mode(void) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().calls.push_back({sim::HookStackCall::kGetMode, nullptr});
  return static_cast<shadowhook_mode_t>(State().mode);
}

void shadowhook_pop_stack(void* return_address) {
  {
    std::lock_guard<std::mutex> lock(State().mutex);
    State().calls.push_back({sim::HookStackCall::kPopStack, return_address});
  }
  sim::Record("shadowhook", "pop_stack " + Hex(return_address));
}

}  // extern "C"

namespace sim {

void RegisterHook(void* proxy, void* original) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().previous[proxy] = original;
}

void ClearHooks() {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().previous.clear();
}

void SetHookMode(int mode) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().mode = mode;
}

std::vector<HookStackCall> HookStackCalls() {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().calls;
}

std::vector<void*> PoppedAddresses() {
  std::vector<void*> popped;
  for (const HookStackCall& call : HookStackCalls()) {
    if (call.kind == HookStackCall::kPopStack) popped.push_back(call.address);
  }
  return popped;
}

void ClearHookStackCalls() {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().calls.clear();
}

}  // namespace sim
