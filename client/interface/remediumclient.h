// Process-wide client of the framework core library. The core is loaded on
// first use and the load is retried at every wrapper use until it succeeds;
// with the core missing every wrapper logs "m_pRemediumCore is NULL" and takes
// its neutral result, so a proxy always goes on.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "message.h"
#include "remediumcore.h"
#include "remediumlog.h"

// Log sites of this client print this file and the lines the framework's log
// tools expect.
inline constexpr char kRemediumClientSourceFile[] = "client/interface/remediumclient.h";
inline constexpr int kLoadRemediumLogLine = 90;
inline constexpr int kNotifyHookMessageLogLine = 111;
inline constexpr int kGetHookArgumentsLogLine = 131;
inline constexpr int kProtectionCallbackLogLine = 152;
inline constexpr int kIsSwitchOpenedLogLine = 191;
inline constexpr int kRecordProbeMessageLogLine = 212;

inline constexpr char kRemediumCoreLibrary[] = "/vendor/lib64/com.velora.remedium.core.so";
inline constexpr char kRemediumGetInstanceSymbol[] = "RemediumGetInstance";

class RemediumClient {
 public:
  static RemediumClient& GetInstance();

  // Loads the core library and takes its instance, unless already done.
  void LoadRemedium();

  // The wrappers: instance, load (a retry after a failed load), then the core.
  static bool IsSwitchOpened(int32_t kind) {
    RemediumCore* core = LoadedCore();
    if (core == nullptr) {
      LogNullCore(kIsSwitchOpenedLogLine, __func__);
      return false;
    }
    return core->IsSwitchOpened(kind);
  }

  static void ProtectionCallback(const CallbackMessage& message) {
    RemediumCore* core = LoadedCore();
    if (core == nullptr) {
      LogNullCore(kProtectionCallbackLogLine, __func__);
      return;
    }
    core->ProtectionCallback(message);
  }

  static std::vector<std::string> GetHookArguments(const std::string& hookName) {
    RemediumCore* core = LoadedCore();
    if (core == nullptr) {
      LogNullCore(kGetHookArgumentsLogLine, __func__);
      return {};
    }
    return core->GetHookArguments(hookName);
  }

  static void NotifyHookMessage(const HookNotification& notification) {
    RemediumCore* core = LoadedCore();
    if (core == nullptr) {
      LogNullCore(kNotifyHookMessageLogLine, __func__);
      return;
    }
    core->NotifyHookMessage(notification);
  }

  static void RecordProbeMessage(const std::string& name, bool result) {
    RemediumCore* core = LoadedCore();
    if (core == nullptr) {
      LogNullCore(kRecordProbeMessageLogLine, __func__);
      return;
    }
    core->RecordProbeMessage(name, result);
  }

  RemediumClient(const RemediumClient&) = delete;
  RemediumClient& operator=(const RemediumClient&) = delete;

 private:
  RemediumClient();
  ~RemediumClient();

  static RemediumCore* LoadedCore() {
    RemediumClient& client = GetInstance();
    client.LoadRemedium();
    return client.m_pRemediumCore.load(std::memory_order_acquire);
  }

  static void LogNullCore(int line, const char* func) {
    RemediumLog(kLogError, kRemediumClientSourceFile, line, func, "m_pRemediumCore is NULL");
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
