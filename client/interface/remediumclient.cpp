#include "client/interface/remediumclient.h"

#include <dlfcn.h>

#include <mutex>

RemediumClient::RemediumClient() { LoadRemedium(); }

// Runs at process exit; takes no lock.
RemediumClient::~RemediumClient() {
  if (m_pLibHandle != nullptr) {
    dlclose(m_pLibHandle);
    m_pLibHandle = nullptr;
  }
  m_pRemediumCore.store(nullptr, std::memory_order_relaxed);
  m_loaded.store(0, std::memory_order_relaxed);
}

void RemediumClient::LoadRemediumLocked() {
  static std::recursive_mutex s_clientMutex;
  std::lock_guard<std::recursive_mutex> lock(s_clientMutex);
  if (m_loaded.load(std::memory_order_relaxed) > 0) return;
  if (m_pLibHandle != nullptr) {
    dlclose(m_pLibHandle);
    m_pLibHandle = nullptr;
  }
  m_pLibHandle = dlopen(kRemediumCoreLibrary, RTLD_NOW | RTLD_GLOBAL);
  if (m_pLibHandle == nullptr) {
    REMEDIUM_LOG(LoadRemediumNullCore);
    return;
  }
  // The framework ships the core with its entry, so a core without one is a
  // broken install: stop the process here rather than call through null.
  m_pGetInstanceFunc = reinterpret_cast<RemediumGetInstanceFunc>(dlsym(m_pLibHandle, kRemediumGetInstanceSymbol));
  if (m_pGetInstanceFunc == nullptr) __builtin_trap();
  // A null instance is kept as it comes and never looked up again.
  m_pRemediumCore.store(m_pGetInstanceFunc(), std::memory_order_release);
  m_loaded.store(1, std::memory_order_release);
}
