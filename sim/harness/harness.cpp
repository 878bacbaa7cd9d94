#include "sim/harness/harness.h"

#include <dlfcn.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "sim/framework/simframework.h"
#include "sim/hal/simhal.h"
#include "sim/platform/simdevice.h"
#include "sim/platform/simlog.h"
#include "sim/platform/simproperties.h"
#include "sim/platform/simshadowhook.h"

namespace sim {

std::string HookLibraryPath() { return framework::LibraryDir() + "/" REMEDIUM_HOOK_LIBRARY; }

std::unique_ptr<HookLibrary> HookLibrary::Load(const std::string& path, std::string* error) {
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    if (error != nullptr) {
      const char* why = dlerror();
      *error = "cannot load the hook library " + path + ": " + (why != nullptr ? why : "unknown error");
    }
    return nullptr;
  }
  return std::unique_ptr<HookLibrary>(new HookLibrary(handle));
}

HookLibrary::~HookLibrary() {
  // Runs the library's exit-time destructors, as the end of a process would.
  dlclose(m_handle);
}

void* HookLibrary::Symbol(const std::string& mangled) const { return dlsym(m_handle, mangled.c_str()); }

void HookLibrary::InstallAll() const {
  for (const CatalogueEntry& entry : Catalogue()) {
    void* proxy = Symbol(entry.mangled);
    if (proxy != nullptr && entry.halFunction != nullptr) RegisterHook(proxy, entry.halFunction);
  }
}

namespace {

void ResetRecords() {
  ClearLog();
  ClearJournal();
  ClearSysfsWrites();
  ClearHookStackCalls();
  hal::Reset();
  framework::ResetCore();
  framework::ResetMessageCenter();
}

// Device roots live in memory (/dev/shm) where the host has it: a phone per
// fuzz input or test creates and removes a small tree each time, which costs
// far less on tmpfs than on a disk file system. /tmp otherwise.
const char* const kRootFolders[] = {"/dev/shm", "/tmp"};

const std::string& RootFolder() {
  static const std::string folder = [] {
    for (const char* candidate : kRootFolders) {
      struct stat info = {};
      if (stat(candidate, &info) == 0 && S_ISDIR(info.st_mode) && access(candidate, W_OK | X_OK) == 0) {
        return std::string(candidate);
      }
    }
    return std::string("/tmp");
  }();
  return folder;
}

// Device roots of test processes that ended without their destructors (a
// death test's child, a crash) are removed by the next phone.
void RemoveOrphanedRoots() {
  std::error_code ec;
  for (const char* folder : kRootFolders) {
    for (const auto& entry : std::filesystem::directory_iterator(folder, ec)) {
      const std::string name = entry.path().filename().string();
      if (name.rfind("remedium-phone-", 0) != 0) continue;
      const long pid = std::strtol(name.c_str() + 15, nullptr, 10);
      if (pid > 0 && kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) {
        std::filesystem::remove_all(entry.path(), ec);
      }
    }
  }
}

}  // namespace

Phone::Phone() {
  RemoveOrphanedRoots();
  std::string pattern = RootFolder() + "/remedium-phone-" + std::to_string(getpid()) + "-XXXXXX";
  const char* made = mkdtemp(pattern.data());
  m_root = made != nullptr ? made : RootFolder() + "/remedium-phone";
  SetDeviceRoot(m_root);
  ResetProperties();
  ResetRecords();
  ClearHooks();
  SetHookMode(0);
  SetSysfsDriver(nullptr);
  PinBootTime(-1);
}

Phone::~Phone() {
  StopCameraProcess();
  SetSysfsDriver(nullptr);
  ClearHooks();
  SetDeviceRoot("");
  std::error_code ec;
  std::filesystem::remove_all(m_root, ec);
}

HookLibrary* Phone::StartCameraProcess(std::string* error) {
  StopCameraProcess();
  std::string why;
  m_library = HookLibrary::Load(HookLibraryPath(), &why);
  if (!m_library) {
    if (error != nullptr) *error = why;
    return nullptr;
  }
  m_library->InstallAll();
  return m_library.get();
}

void Phone::StopCameraProcess() {
  m_library.reset();
  ClearHooks();
}

HookLibrary* Phone::RestartCameraService() {
  StopCameraProcess();
  return StartCameraProcess();
}

HookLibrary* Phone::Reboot() {
  StopCameraProcess();
  RebootProperties();
  return StartCameraProcess();
}

int ListHooks(const std::string& path, std::ostream& out, std::ostream& err) {
  std::string error;
  const std::unique_ptr<HookLibrary> library = HookLibrary::Load(path, &error);
  if (!library) {
    err << "remedium-sim: " << error << "\n";
    return 2;
  }
  out << "hook library: " << path << "\n";
  std::vector<const CatalogueEntry*> missing;
  char line[512];
  for (const CatalogueEntry& entry : Catalogue()) {
    if (library->Symbol(entry.mangled) == nullptr) {
      missing.push_back(&entry);
      continue;
    }
    std::snprintf(line, sizeof(line), "  %-34s %s%s\n", entry.name, Signature(entry).c_str(),
                  entry.halFunction == nullptr ? "  [called by the hooks, installed over nothing]" : "");
    out << line;
  }
  for (const CatalogueEntry* entry : missing) {
    std::snprintf(line, sizeof(line), "  MISSING %-26s %s (symbol %s)\n", entry->name, Signature(*entry).c_str(),
                  entry->mangled);
    out << line;
  }
  out << Catalogue().size() - missing.size() << " of " << Catalogue().size() << " exported names resolved";
  if (!missing.empty()) out << "; " << missing.size() << " missing";
  out << "\n";
  return missing.empty() ? 0 : 1;
}

}  // namespace sim
