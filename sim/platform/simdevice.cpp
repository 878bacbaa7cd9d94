#include "sim/platform/simdevice.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <utility>

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define REMEDIUM_SIM_TSAN 1
#include <sanitizer/tsan_interface.h>
#endif
#endif

namespace {

namespace fs = std::filesystem;

struct DeviceState {
  std::mutex mutex;
  std::string root;
  std::string savedCwd;
  std::map<int, std::string> sysfsFds;  // descriptor -> device path
  std::vector<sim::SysfsWrite> writes;
  sim::SysfsDriver driver;
  std::vector<sim::Event> journal;
  uint64_t nextSeq = 1;
};

// The stand-ins for open, write and close run inside ThreadSanitizer's own
// interceptors of those calls, where it does not see mutex operations (write
// counts as a blocking call). The state lock therefore also tells
// ThreadSanitizer directly that it orders what it guards.
class StateLock {
 public:
  explicit StateLock(std::mutex& mutex) : m_mutex(mutex) {
    m_mutex.lock();
#if REMEDIUM_SIM_TSAN
    __tsan_acquire(&m_mutex);
#endif
  }
  ~StateLock() {
#if REMEDIUM_SIM_TSAN
    __tsan_release(&m_mutex);
#endif
    m_mutex.unlock();
  }
  StateLock(const StateLock&) = delete;
  StateLock& operator=(const StateLock&) = delete;

 private:
  std::mutex& m_mutex;
};

// Never destroyed: the interposed calls may run during exit.
DeviceState& State() {
  static auto* state = new DeviceState;
  return *state;
}

std::atomic<int64_t> g_pinnedBootSeconds{-1};
std::atomic<bool> g_anySysfsFd{false};

// The stand-ins reach the kernel directly rather than through the next
// library's symbol: they may run while a sanitizer runtime is still starting,
// before dlsym is usable.
long RawOpen(const char* path, int flags, mode_t mode) { return syscall(SYS_openat, AT_FDCWD, path, flags, mode); }

bool IsDevicePath(const char* path) {
  return path != nullptr && (std::strncmp(path, "/vendor/", 8) == 0 || std::strncmp(path, "/odm/", 5) == 0 ||
                             std::strncmp(path, "/sys/", 5) == 0);
}

// Returns the mapped path, or the path itself when no root is set.
std::string MapPath(const char* path, bool* isSysfs) {
  *isSysfs = false;
  if (!IsDevicePath(path)) return path ? path : "";
  StateLock lock(State().mutex);
  if (State().root.empty()) return path;
  *isSysfs = std::strncmp(path, "/sys/", 5) == 0;
  return State().root + path;
}

int OpenMapped(const char* path, int flags, mode_t mode) {
  bool isSysfs = false;
  const std::string mapped = MapPath(path, &isSysfs);
  const int fd = static_cast<int>(RawOpen(mapped.c_str(), flags, mode));
  if (fd >= 0 && isSysfs) {
    StateLock lock(State().mutex);
    State().sysfsFds[fd] = path;
    g_anySysfsFd.store(true, std::memory_order_relaxed);
  }
  return fd;
}

mode_t ModeArg(int flags, va_list args) {
  if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) return va_arg(args, mode_t);
  return 0;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const mode_t mode = ModeArg(flags, args);
  va_end(args);
  return OpenMapped(path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const mode_t mode = ModeArg(flags, args);
  va_end(args);
  return OpenMapped(path, flags, mode);
}

ssize_t write(int fd, const void* buf, size_t count) {
  auto realWrite = [](int to, const void* bytes, size_t size) {
    return static_cast<ssize_t>(syscall(SYS_write, to, bytes, size));
  };
  if (!g_anySysfsFd.load(std::memory_order_relaxed)) return realWrite(fd, buf, count);
  std::string devicePath;
  {
    StateLock lock(State().mutex);
    auto it = State().sysfsFds.find(fd);
    if (it == State().sysfsFds.end()) return realWrite(fd, buf, count);
    devicePath = it->second;
  }
  // OK: a sysfs store replaces the value whatever the offset; the kernel keeps
  // the text up to the first NUL.
  const char* bytes = static_cast<const char*>(buf);
  const size_t textLength = strnlen(bytes, count);
  ssize_t result = -1;
  if (ftruncate(fd, 0) == 0 && pwrite(fd, bytes, textLength, 0) == static_cast<ssize_t>(textLength)) {
    result = static_cast<ssize_t>(count);
  }
  const int savedErrno = errno;
  sim::SysfsDriver driver;
  {
    StateLock lock(State().mutex);
    State().writes.push_back({devicePath, std::string(bytes, count), result});
    driver = State().driver;
  }
  sim::Record("sysfs", "write " + devicePath + ": " + std::string(bytes, textLength));
  if (driver) driver(devicePath, std::string(bytes, textLength));
  errno = savedErrno;
  return result;
}

int close(int fd) {
  if (g_anySysfsFd.load(std::memory_order_relaxed)) {
    StateLock lock(State().mutex);
    State().sysfsFds.erase(fd);
  }
  return static_cast<int>(syscall(SYS_close, fd));
}

void* dlopen(const char* path, int flags) {
  using DlopenFn = void* (*)(const char*, int);
  static std::atomic<DlopenFn> realDlopen{nullptr};
  if (realDlopen.load() == nullptr) realDlopen.store(reinterpret_cast<DlopenFn>(dlsym(RTLD_NEXT, "dlopen")));
  bool isSysfs = false;
  const std::string mapped = MapPath(path, &isSysfs);
  return realDlopen.load()(path == nullptr ? nullptr : mapped.c_str(), flags);
}

int clock_gettime(clockid_t clock, struct timespec* ts) {
  const int64_t pinned = g_pinnedBootSeconds.load(std::memory_order_relaxed);
  if (clock == CLOCK_BOOTTIME && pinned >= 0) {
    ts->tv_sec = static_cast<time_t>(pinned);
    ts->tv_nsec = 123456789;  // OK: callers keep whole seconds only
    return 0;
  }
  return static_cast<int>(syscall(SYS_clock_gettime, clock, ts));
}

}  // extern "C"

namespace sim {

void SetDeviceRoot(const std::string& root) {
  StateLock lock(State().mutex);
  if (root.empty()) {
    if (!State().root.empty() && !State().savedCwd.empty()) {
      std::error_code ec;
      fs::current_path(State().savedCwd, ec);
    }
    State().root.clear();
    return;
  }
  fs::create_directories(root);
  if (State().root.empty()) State().savedCwd = fs::current_path().string();
  State().root = fs::absolute(root).lexically_normal().string();
  if (!State().root.empty() && State().root.back() == '/') State().root.pop_back();
  fs::current_path(State().root);
}

std::string DeviceRoot() {
  StateLock lock(State().mutex);
  return State().root;
}

std::string HostPath(const std::string& devicePath) {
  StateLock lock(State().mutex);
  if (State().root.empty()) return devicePath;
  if (!devicePath.empty() && devicePath.front() == '/') return State().root + devicePath;
  return State().root + "/" + devicePath;
}

void WriteDeviceFile(const std::string& devicePath, const std::string& contents) {
  const fs::path host = HostPath(devicePath);
  fs::create_directories(host.parent_path());
  std::ofstream out(host, std::ios::binary | std::ios::trunc);
  out << contents;
}

void LinkDeviceFile(const std::string& devicePath, const std::string& hostTarget) {
  const fs::path host = HostPath(devicePath);
  fs::create_directories(host.parent_path());
  std::error_code ec;
  fs::remove(host, ec);
  fs::create_symlink(hostTarget, host);
}

std::string ReadDeviceFile(const std::string& devicePath) {
  std::ifstream in(HostPath(devicePath), std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void RemoveDeviceFile(const std::string& devicePath) {
  std::error_code ec;
  fs::remove(HostPath(devicePath), ec);
}

std::vector<SysfsWrite> SysfsWrites(size_t from) {
  StateLock lock(State().mutex);
  return Tail(State().writes, from);
}

void ClearSysfsWrites() {
  StateLock lock(State().mutex);
  State().writes.clear();
}

std::vector<SysfsWrite> TakeSysfsWrites() {
  StateLock lock(State().mutex);
  return std::exchange(State().writes, {});
}

void SetSysfsDriver(SysfsDriver driver) {
  StateLock lock(State().mutex);
  State().driver = std::move(driver);
}

void PinBootTime(int64_t seconds) { g_pinnedBootSeconds.store(seconds, std::memory_order_relaxed); }

void Record(const std::string& source, const std::string& text) {
  StateLock lock(State().mutex);
  State().journal.push_back({State().nextSeq++, source, text});
}

std::vector<Event> Journal(size_t from) {
  StateLock lock(State().mutex);
  return Tail(State().journal, from);
}

void ClearJournal() {
  StateLock lock(State().mutex);
  State().journal.clear();
}

std::vector<Event> TakeJournal() {
  StateLock lock(State().mutex);
  return std::exchange(State().journal, {});
}

}  // namespace sim
