// Process-wide client of the framework core library. The core is loaded on
// first use and the load is retried at every wrapper use until it succeeds;
// with the core missing every wrapper logs "m_pRemediumCore is NULL" and takes
// its neutral result, so a proxy always goes on.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "client/interface/logsites.h"
#include "client/interface/message.h"
#include "client/interface/remediumcore.h"

inline constexpr char kRemediumCoreLibrary[] = "/vendor/lib64/com.velora.remedium.core.so";
inline constexpr char kRemediumGetInstanceSymbol[] = "RemediumGetInstance";

class RemediumClient {
 public:
  // Inline, so that a use after the first costs the guard check only.
  static RemediumClient& GetInstance() {
    static RemediumClient s_instance;
    return s_instance;
  }

  // Loads the core library and takes its instance, unless already done.
  // Once loaded, every use answers here without the lock: the acquire pairs
  // with the release store that ends a successful load, so the core pointer
  // is seen too.
  void LoadRemedium() {
    if (m_loaded.load(std::memory_order_acquire) > 0) return;
    LoadRemediumLocked();
  }

  // The wrappers: instance, load (a retry after a failed load), then the core.
  static bool IsSwitchOpened(int32_t kind) {
    RemediumCore* core = LoadedCore();
    if (core == nullptr) {
      REMEDIUM_LOG(IsSwitchOpenedNullCore);
      return false;
    }
    return core->IsSwitchOpened(kind);
  }

  static void ProtectionCallback(const CallbackMessage& message) {
    RemediumCore* core = LoadedCore();
    if (core == nullptr) {
      REMEDIUM_LOG(ProtectionCallbackNullCore);
      return;
    }
    core->ProtectionCallback(message);
  }

  static std::vector<std::string> GetHookArguments(const std::string& hookName) {
    RemediumCore* core = LoadedCore();
    if (core == nullptr) {
      REMEDIUM_LOG(GetHookArgumentsNullCore);
      return {};
    }
    return core->GetHookArguments(hookName);
  }

  static void NotifyHookMessage(const HookNotification& notification) {
    RemediumCore* core = LoadedCore();
    if (core == nullptr) {
      REMEDIUM_LOG(NotifyHookMessageNullCore);
      return;
    }
    core->NotifyHookMessage(notification);
  }

  static void RecordProbeMessage(const std::string& name, bool result) {
    RemediumCore* core = LoadedCore();
    if (core == nullptr) {
      REMEDIUM_LOG(RecordProbeMessageNullCore);
      return;
    }
    core->RecordProbeMessage(name, result);
  }

  RemediumClient(const RemediumClient&) = delete;
  RemediumClient& operator=(const RemediumClient&) = delete;

 private:
  RemediumClient();
  ~RemediumClient();

  // The load itself, serialised; retried at every use until it succeeds.
  void LoadRemediumLocked();

  static RemediumCore* LoadedCore() {
    RemediumClient& client = GetInstance();
    client.LoadRemedium();
    return client.m_pRemediumCore.load(std::memory_order_acquire);
  }

  // Written under the load lock, read by the wrappers without it.
  std::atomic<int32_t> m_loaded{0};
  void* m_pLibHandle = nullptr;
  std::atomic<RemediumCore*> m_pRemediumCore{nullptr};
  RemediumGetInstanceFunc m_pGetInstanceFunc = nullptr;
};

// Once-per-process report of a proxy's first call. The flag is a relaxed
// atomic byte: two threads may both report (the design accepts a duplicate),
// but a read never tears.
inline void NotifyHookOnce(std::atomic<uint8_t>& hookNotified, const char* hookName) {
  if (hookNotified.load(std::memory_order_relaxed) != 0) return;
  hookNotified.store(1, std::memory_order_relaxed);
  RemediumClient::NotifyHookMessage(HookNotification{hookName, 1});
}
