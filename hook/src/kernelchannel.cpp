#include "hook/src/kernelchannel.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "hook/src/camxhal.h"
#include "hook/src/hooklogsites.h"
#include "hook/src/numberlist.h"

namespace CamX {

namespace {

static_assert(sizeof(long) == sizeof(int64_t));

// The open-failure and read lines of each operation: one string each.
struct ChannelLogSites {
  const LogSite& openFailure;
  const LogSite& readText;
};
static_assert(logsite::TakesOneString(logsite::SetProbeResultOpenFailureFormat) &&
              logsite::TakesOneString(logsite::SetProbeResultReadTextFormat) &&
              logsite::TakesOneString(logsite::ReadProbeResultOpenFailureFormat) &&
              logsite::TakesOneString(logsite::ReadProbeResultReadTextFormat) &&
              logsite::TakesOneString(logsite::ResetProbeResultOpenFailureFormat) &&
              logsite::TakesOneString(logsite::ResetProbeResultReadTextFormat) &&
              logsite::TakesOneString(logsite::InitResultOpenFailureFormat));
constexpr ChannelLogSites kSetSites{logsite::kSetProbeResultOpenFailure, logsite::kSetProbeResultReadText};
constexpr ChannelLogSites kReadSites{logsite::kReadProbeResultOpenFailure, logsite::kReadProbeResultReadText};
constexpr ChannelLogSites kResetSites{logsite::kResetProbeResultOpenFailure, logsite::kResetProbeResultReadText};

void LogOpenFailure(const LogSite& site, int errorNum) {
  char errorText[100] = {};
  OsUtils::StrError(errorText, sizeof(errorText), errorNum);
  LogSiteText(site, errorText);
}

// One write of the text followed by NUL padding; text past 1024 bytes is cut.
ssize_t WriteTable(int fd, const std::string& text) {
  char buffer[kKernelTextSize] = {};
  // NOLINTNEXTLINE(bugprone-not-null-terminated-result): the zeroed rest of the buffer pads the text.
  std::memcpy(buffer, text.data(), std::min(text.size(), sizeof(buffer)));
  return write(fd, buffer, sizeof(buffer));
}

// Opens the parameter and reads its text for the set and read operations.
// Returns the open descriptor, or -1 when there is nothing to parse: a
// descriptor below 1 (logged; descriptor 0 counts as a failure too and is left
// open) or an empty or failed read (closed, not logged).
int OpenAndReadText(int flags, const ChannelLogSites& sites, char (&text)[kKernelTextSize]) {
  const int fd = open(kSensorApplySettingsControlPath, flags);
  if (fd < 1) {
    LogOpenFailure(sites.openFailure, errno);
    return -1;
  }
  const ssize_t length = read(fd, text, sizeof(text) - 1);
  if (length <= 0) {
    close(fd);
    return -1;
  }
  text[length] = '\0';
  LogSiteText(sites.readText, text);
  return fd;
}

}  // namespace

ProbeResultTable ParseProbeResultTable(const std::string& text) {
  ProbeResultTable table = StringToArray64(text, 0);
  // OK: text after the 64th value is ignored; reads are bounded to 1023 bytes.
  if (table.size() > kProbeResultTableSize) table.resize(kProbeResultTableSize);
  return table;
}

ProbeResultTable SetSensorProbeResult(uint32_t cameraId, int64_t) {
  char text[kKernelTextSize] = {};
  const int fd = OpenAndReadText(O_RDWR, kSetSites, text);
  if (fd < 0) return {};
  ProbeResultTable table = ParseProbeResultTable(text);
  if (table.size() == kProbeResultTableSize) {
    BlockEntry(table, kApplyControlBlock, cameraId) = kApplyControlMarked;
    BlockEntry(table, kControlValueBlock, cameraId) = kControlValueMarked;
    BlockEntry(table, kClearedControlBlock, cameraId) = 0;
    const std::string newText = ArrayToString64(table);
    // The size printed is always 0, as the driver's tooling expects.
    REMEDIUM_LOG(SetProbeResultWrite, newText.c_str(), 0);
    // OK: no seek back after the read; a sysfs store replaces the whole value.
    (void)WriteTable(fd, newText);
  }
  close(fd);
  return table;
}

ProbeResultTable ReadSensorProbeResult(uint32_t) {
  char text[kKernelTextSize] = {};
  const int fd = OpenAndReadText(O_RDONLY, kReadSites, text);
  if (fd < 0) return {};
  ProbeResultTable table = ParseProbeResultTable(text);
  close(fd);
  return table;
}

void ResetSensorProbeResult(uint32_t cameraId) {
  const int fd = open(kSensorApplySettingsControlPath, O_RDWR);
  // Unlike the other two operations, descriptor 0 is usable here.
  if (fd < 0) {
    LogOpenFailure(kResetSites.openFailure, errno);
    return;
  }
  char text[kKernelTextSize] = {};
  const ssize_t length = read(fd, text, sizeof(text) - 1);
  // The reset runs only after the same probe read this file successfully, so
  // a read error here is not handled: it ends the process, as the terminator
  // store at index -1 would under the device build's bounds checks. Trapping
  // explicitly keeps that deterministic instead of writing out of bounds.
  if (length < 0) __builtin_trap();
  text[length] = '\0';
  if (length > 0) LogSiteText(kResetSites.readText, text);
  ProbeResultTable table = ParseProbeResultTable(text);
  if (table.size() == kProbeResultTableSize) {
    for (const size_t block : {kApplyControlBlock, kControlValueBlock, kKmdResultBlock, kClearedControlBlock}) {
      BlockEntry(table, block, cameraId) = 0;
    }
    const std::string newText = ArrayToString64(table);
    if (WriteTable(fd, newText) != 0) REMEDIUM_LOG(ResetProbeResultWrite, newText.c_str());
  }
  close(fd);
}

ProbeResultTable ReadSensorInitResult(uint32_t /*unused*/) {
  char text[kKernelTextSize];
  std::memset(text, 0, sizeof(text));
  const int fd = open(kSensorApplySettingsControlPath, O_RDONLY);
  // Descriptor 0 counts as a failure too and is left open.
  if (fd < 1) {
    LogOpenFailure(logsite::kInitResultOpenFailure, errno);
    return {};
  }
  const ssize_t count = read(fd, text, sizeof(text) - 1);
  ProbeResultTable values;
  if (count >= 1 && count <= 1022) {
    text[count] = '\0';
    REMEDIUM_LOG(InitResultReadText, text);
    values = StringToArray64(text, 0);
  }
  close(fd);
  return values;
}

}  // namespace CamX
