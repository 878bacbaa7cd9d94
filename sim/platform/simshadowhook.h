// Control side of the simulated ShadowHook (libshadowhook.so): the installer's
// registry from proxy to the function it replaced, the hook mode, and a record
// of every previous-function lookup and stack pop.
#pragma once

#include <cstdint>
#include <vector>

namespace sim {

// What the framework core does when it installs a proxy over `original`.
void RegisterHook(void* proxy, void* original);
void ClearHooks();
// 0 = shared (the default), 1 = unique; any value is returned as it is.
void SetHookMode(int mode);

struct HookStackCall {
  enum Kind { kGetPrevFunc, kGetMode, kPopStack } kind;
  void* address;  // the proxy for kGetPrevFunc, the return address for kPopStack
};
std::vector<HookStackCall> HookStackCalls();
std::vector<void*> PoppedAddresses();
void ClearHookStackCalls();

}  // namespace sim
