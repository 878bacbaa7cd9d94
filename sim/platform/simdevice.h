// Control side of the simulated phone's file system and event journal
// (libsimdevice.so). Test programs link this library ahead of the C library,
// so its `open`, `dlopen`, `write` and `close` stand in for the platform's.
//
// Device paths stay literal in the hook library. While a device root is set,
// absolute paths under /vendor/, /odm/ and /sys/ are served from inside the
// root, and the working directory is the root (the camera process runs in
// "/", which is what the relative override-settings path relies on).
// Files under /sys/ behave like sysfs attributes: a fresh descriptor reads the
// value from its start, and a write replaces the whole value whatever the file
// offset; NUL padding after the text is not stored, as a kernel parameter
// keeps only what it parsed.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace sim {

// The records of `all` from the `from`-th on (the tail a caller has not seen).
template <typename T>
std::vector<T> Tail(const std::vector<T>& all, size_t from) {
  return std::vector<T>(all.begin() + static_cast<std::ptrdiff_t>(std::min(from, all.size())), all.end());
}

// Sets the device root (created if missing) and enters it; an empty root
// turns path mapping off and returns to the previous working directory.
void SetDeviceRoot(const std::string& root);
std::string DeviceRoot();
// The host path that a device path resolves to under the current root.
std::string HostPath(const std::string& devicePath);

// Writes `contents` to the device path (parents created), or links it to an
// existing host file.
void WriteDeviceFile(const std::string& devicePath, const std::string& contents);
void LinkDeviceFile(const std::string& devicePath, const std::string& hostTarget);
std::string ReadDeviceFile(const std::string& devicePath);
void RemoveDeviceFile(const std::string& devicePath);

// Every write() that reached a sysfs file, with the bytes as written
// (padding included), in order.
struct SysfsWrite {
  std::string devicePath;
  std::string bytes;
  int64_t result;
};
std::vector<SysfsWrite> SysfsWrites(size_t from = 0);  // from the `from`-th write on
void ClearSysfsWrites();
std::vector<SysfsWrite> TakeSysfsWrites();  // the writes so far, which are then forgotten

// A driver callback runs after each write to a sysfs file and may rewrite
// the stored value (the simulated kernel side of a module parameter).
using SysfsDriver = std::function<void(const std::string& devicePath, const std::string& stored)>;
void SetSysfsDriver(SysfsDriver driver);

// Pinned CLOCK_BOOTTIME, in seconds (negative: the real clock).
void PinBootTime(int64_t seconds);

// Ordered journal of what the simulated platform saw: log lines, property
// writes, hook-stack calls, HAL calls, framework calls. Sources are short
// words ("log", "prop", "shadowhook", "hal", "core", "messagecenter", "sysfs").
struct Event {
  uint64_t seq;
  std::string source;
  std::string text;
};
void Record(const std::string& source, const std::string& text);
std::vector<Event> Journal(size_t from = 0);  // from the `from`-th event on
void ClearJournal();
std::vector<Event> TakeJournal();  // the events so far, which are then forgotten

}  // namespace sim
