// Loads the built hook library the way the framework core does (dlopen, then
// each proxy by its exported C++ name), installs the proxies over the
// simulated HAL, and gives each test or scenario a fresh simulated phone.
#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "sim/harness/catalogue.h"

namespace sim {

// The built hook library, next to the simulated platform's libraries.
std::string HookLibraryPath();
// `remedium-sim hooks`: each catalogue entry the library at `path` exports,
// and any it lacks. 0 all there, 1 some missing, 2 the library not loaded.
int ListHooks(const std::string& path, std::ostream& out, std::ostream& err);

// A loaded hook library; unloading it ends its "process": the library's
// in-process state (its statics, the core it loaded) is gone.
class HookLibrary {
 public:
  // Null with `error` set when the library cannot be opened.
  static std::unique_ptr<HookLibrary> Load(const std::string& path, std::string* error);
  ~HookLibrary();

  void* Symbol(const std::string& mangled) const;
  // Resolves a proxy by its catalogue name; null when the library lacks it.
  template <typename Fn>
  Fn* Proxy(const std::string& name) const {
    const CatalogueEntry* entry = FindCatalogueEntry(name);
    return entry == nullptr ? nullptr : reinterpret_cast<Fn*>(Symbol(entry->mangled));
  }
  // Registers every resolved proxy over its simulated HAL function, as the
  // core's installer does.
  void InstallAll() const;

  HookLibrary(const HookLibrary&) = delete;
  HookLibrary& operator=(const HookLibrary&) = delete;

 private:
  explicit HookLibrary(void* handle) : m_handle(handle) {}
  void* m_handle;
};

// A fresh simulated phone: a new device root (removed afterwards), no
// properties, empty records, shared hook mode, no hooks installed.
class Phone {
 public:
  Phone();
  ~Phone();
  const std::string& root() const { return m_root; }

  // Starts the camera process: loads the hook library and installs its
  // proxies. Aborts the caller's test on failure through the returned null.
  HookLibrary* StartCameraProcess(std::string* error = nullptr);
  // Ends the camera process (the library's in-process state is lost;
  // properties stay).
  void StopCameraProcess();
  // Restarts the camera service: a fresh process, all properties stay.
  HookLibrary* RestartCameraService();
  // Reboots: a fresh process, only "persist." properties stay.
  HookLibrary* Reboot();
  HookLibrary* library() const { return m_library.get(); }

  Phone(const Phone&) = delete;
  Phone& operator=(const Phone&) = delete;

 private:
  std::string m_root;
  std::unique_ptr<HookLibrary> m_library;
};

}  // namespace sim
