// Plays a call sequence on a fresh simulated phone and checks, after every
// operation, what the library must never do whatever the sequence.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <map>
#include <set>

#include "explain/sites.h"
#include "hook/src/errorframeworkid.h"
#include "sim/framework/simframework.h"
#include "sim/hal/simhal.h"
#include "sim/hal/simsensorhal.h"
#include "sim/harness/harness.h"
#include "sim/platform/simdevice.h"
#include "sim/platform/simproperties.h"
#include "sim/platform/simshadowhook.h"
#include "sim/sequence/sequence.h"

namespace sim::sequence {
namespace {

namespace fw = sim::framework;

constexpr char kOverrideSettingsPath[] = "/odm/etc/camera/camxoverridesettings.txt";
constexpr char kStatePrefix[] = "vendor.debug.camera.imagesensorstate.";
constexpr const char* kErrorIdProperty = CamX::kErrorFrameworkIdProperty;
// The framework identifiers the library's camera table maps to (0: none).
const std::set<int64_t> kFrameworkIds = [] {
  std::set<int64_t> ids(std::begin(CamX::kFrameworkIdOfCamera), std::end(CamX::kFrameworkIdOfCamera));
  ids.insert(0);
  return ids;
}();
constexpr size_t kMaxProperties = 256;
constexpr int64_t kBootTime = 100;  // seconds since boot, a scenario's default
constexpr size_t kMaxPropertyValue = 92;

size_t OpenDescriptors() {
  size_t count = 0;
  if (DIR* dir = opendir("/proc/self/fd")) {
    while (readdir(dir) != nullptr) ++count;
    closedir(dir);
  }
  return count;
}

// "<P:S:12><I:F:0><C:-:3>": three groups in this order, each a valid result letter.
bool IsSensorState(const std::string& value) {
  size_t at = 0;
  for (char stage : {'P', 'I', 'C'}) {
    if (value.compare(at, 3, std::string{'<', stage, ':'}) != 0) return false;
    at += 3;
    if (at >= value.size() || (value[at] != 'S' && value[at] != 'F' && value[at] != '-')) return false;
    if (++at >= value.size() || value[at++] != ':') return false;
    const size_t digits = at;
    while (at < value.size() && value[at] >= '0' && value[at] <= '9') ++at;
    if (at == digits || at >= value.size() || value[at++] != '>') return false;
  }
  return at == value.size();
}

// A comma-separated list of integers; nullopt when it is not one.
std::optional<std::vector<int64_t>> Numbers(const std::string& text) {
  std::vector<int64_t> numbers;
  if (text.empty()) return numbers;
  size_t at = 0;
  while (true) {
    const size_t end = text.find(',', at);
    const std::string item = text.substr(at, end == std::string::npos ? std::string::npos : end - at);
    char* stop = nullptr;
    if (item.empty()) return std::nullopt;
    const long long value = std::strtoll(item.c_str(), &stop, 10);
    if (*stop != '\0') return std::nullopt;
    numbers.push_back(value);
    if (end == std::string::npos) return numbers;
    at = end + 1;
  }
}

bool HasDuplicates(std::vector<int64_t> numbers) {
  std::sort(numbers.begin(), numbers.end());
  return std::adjacent_find(numbers.begin(), numbers.end()) != numbers.end();
}

class Player {
 public:
  explicit Player(const PlayHooks& hooks) : m_hooks(hooks) {}

  size_t Run(const std::vector<Op>& ops) {
    sim::PinBootTime(kBootTime);  // a sequence replays the same, as a scenario's device does
    Start([&] { return m_phone.StartCameraProcess(); });
    for (m_index = 0; m_index < ops.size() && m_library != nullptr; ++m_index) {
      m_op = &ops[m_index];
      const std::map<std::string, std::string> before = sim::AllProperties();
      const size_t descriptors = OpenDescriptors();
      const bool call = m_op->kind == Op::Kind::kCall;
      if (call) Call();
      Apply();
      if (m_hooks.leakAfter && *m_hooks.leakAfter == m_index) m_leaked = open("/proc/self/status", O_RDONLY);
      if (call && OpenDescriptors() != descriptors) {
        Violation("no descriptor left open", std::to_string(descriptors) + " open before the call, " +
                                                 std::to_string(OpenDescriptors()) + " after");
      }
      CheckKernelWrites();
      CheckProperties(before, call);
      CheckNotifications();
    }
    End();
    if (m_leaked >= 0) close(m_leaked);
    return m_index;
  }

 private:
  void Violation(const std::string& invariant, const std::string& detail) {
    const std::string message = "operation " + std::to_string(m_index) + " (" + Describe(*m_op) +
                                "): invariant violated: " + invariant + ": " + detail;
    if (m_hooks.violation) {
      m_hooks.violation(message);
      return;
    }
    std::fprintf(stderr, "%s\n", message.c_str());
    std::abort();
  }

  template <typename Starter>
  void Start(Starter start) {
    std::srand(1);  // a fresh process starts with rand() unseeded
    m_library = start();
    m_notifications = fw::CoreNotifications().size();
    m_notified.clear();
  }

  void End() {
    if (m_library != nullptr && m_hooks.beforeProcessEnds) m_hooks.beforeProcessEnds();
  }

  void Restart() {
    End();
    Start([&] { return m_phone.RestartCameraService(); });
  }

  void Call() {
    const CatalogueEntry& entry = Catalogue()[m_op->entry];
    void* proxy = m_library->Symbol(entry.mangled);
    if (proxy == nullptr) {
      Violation("the library exports every catalogue entry", std::string(entry.mangled) + " is missing");
      return;
    }
    if (entry.invoke == nullptr) {
      reinterpret_cast<void (*)(unsigned int, int)>(proxy)(m_op->args.camera.value_or(0), m_op->isError);
      return;
    }
    const size_t stack = sim::HookStackCalls().size();
    const size_t journal = sim::Journal().size();
    hal::SetDefaultResult(entry.call, hal::Outcome(m_op->hal, m_op->kernel));
    const Observed observed = entry.invoke(proxy, m_op->args);
    hal::Unscript(entry.call);
    const Value* aborted = observed.Find("aborted");
    if (aborted != nullptr && std::get<bool>(*aborted)) {
      Restart();  // the design's own stop of the camera process; init starts the camera service again
      return;
    }
    CheckHookStack(entry, stack, journal);
    CheckLogLinesAreKnownSites(journal);
  }

  // Every line the library writes is one explain's reader knows (a site of the joined table,
  // its format matched): a line the tools could not read would be a decision lost in the field.
  void CheckLogLinesAreKnownSites(size_t journal) {
    constexpr std::string_view kTag = " [REMEDIUM]: ";
    for (const Event& event : sim::Journal(journal)) {
      if (event.source != "log") continue;
      const size_t tag = event.text.find(kTag);
      if (tag == std::string::npos) continue;
      explain::SiteMatch match;
      const std::string_view message = std::string_view(event.text).substr(tag + kTag.size());
      if (!explain::MatchSite(message, &match)) {
        Violation("every library log line is a known site of explain's reader", std::string(message.substr(0, 200)));
      }
    }
  }

  // In shared mode a proxy pops the hook stack once, as the last thing it
  // does, with the return address into its caller.
  void CheckHookStack(const CatalogueEntry& entry, size_t stack, size_t journal) {
    const std::vector<HookStackCall> calls = sim::HookStackCalls();
    std::vector<void*> popped;
    for (size_t i = stack; i < calls.size(); ++i) {
      if (calls[i].kind == HookStackCall::kPopStack) popped.push_back(calls[i].address);
    }
    if (popped.size() != 1) {
      Violation("the proxy pops the hook stack exactly once", std::to_string(popped.size()) + " pops");
      return;
    }
    const std::vector<Event> events = sim::Journal(journal);
    const size_t last = events.size();
    if (last == 0 || events[last - 1].source != "shadowhook" || events[last - 1].text.rfind("pop_stack", 0) != 0) {
      Violation("the pop is the proxy's last action",
                last == 0 ? std::string("no events") : events[last - 1].source + ": " + events[last - 1].text);
      return;
    }
    Dl_info info = {};
    Dl_info library = {};
    if (dladdr(popped.front(), &info) == 0 || dladdr(m_library->Symbol(entry.mangled), &library) == 0 ||
        info.dli_fbase == library.dli_fbase) {
      Violation("the proxy pops with its own return address", "the address is not in the proxy's caller");
      return;
    }
    auto [known, added] = m_popAddresses.emplace(m_op->entry, popped.front());
    if (!added && known->second != popped.front()) {
      Violation("the proxy pops with its own return address", "a different return address from the same call site");
    }
  }

  void Apply() {
    const Op& op = *m_op;
    switch (op.kind) {
      case Op::Kind::kCall:
        break;
      case Op::Kind::kCore:
        op.number == 0 ? fw::RemoveCore() : fw::InstallCore();
        break;
      case Op::Kind::kSwitch:
        fw::SetSwitch(static_cast<int32_t>(op.number), op.flag);
        break;
      case Op::Kind::kHookArguments:
        fw::SetHookArguments(op.name, op.texts);
        break;
      case Op::Kind::kMessageCenter:
        op.number == 0   ? fw::RemoveMessageCenter()
        : op.number == 1 ? fw::InstallMessageCenter()
                         : fw::InstallMessageCenterWithoutSend();
        break;
      case Op::Kind::kSensorType:
        fw::SetSensorType(op.name, op.text);
        break;
      case Op::Kind::kMostProbed:
        fw::SetMostProbedSensor(op.text, op.name, op.number);
        break;
      case Op::Kind::kProperty:
        op.flag ? sim::PresetProperty(op.name, op.text) : sim::RemoveProperty(op.name);
        break;
      case Op::Kind::kKernelParameter:
        op.number == 0 ? sim::RemoveDeviceFile(hal::kProbeResultParameter)
                       : sim::WriteDeviceFile(hal::kProbeResultParameter, op.text);
        break;
      case Op::Kind::kOverrideSettings:
        op.number == 0 ? sim::RemoveDeviceFile(kOverrideSettingsPath)
                       : sim::WriteDeviceFile(kOverrideSettingsPath, op.text);
        break;
      case Op::Kind::kRestart:
        Restart();
        break;
      case Op::Kind::kReboot:
        End();
        Start([&] {
          // The kernel parameter goes back to what the phone started with: no file.
          m_phone.StopCameraProcess();
          sim::RebootProperties();
          sim::RemoveDeviceFile(hal::kProbeResultParameter);
          sim::PinBootTime(kBootTime);
          return m_phone.StartCameraProcess();
        });
        break;
    }
  }

  // A kernel parameter write is the whole table: 64 numbers in a 1024-byte NUL-padded value.
  void CheckKernelWrites() {
    const std::vector<SysfsWrite> writes = sim::SysfsWrites(m_writes);
    m_writes += writes.size();
    for (const SysfsWrite& write : writes) {
      if (write.devicePath != hal::kProbeResultParameter) continue;
      if (write.bytes.size() != 1024) {
        Violation("kernel parameter written as 1024 bytes", std::to_string(write.bytes.size()) + " bytes");
        return;
      }
      const size_t nul = write.bytes.find('\0');
      const std::string text = write.bytes.substr(0, nul);
      if (nul == std::string::npos || write.bytes.find_first_not_of('\0', nul) != std::string::npos) {
        Violation("kernel parameter NUL-padded", "text and padding interleave");
        return;
      }
      const auto numbers = Numbers(text);
      if (!numbers || numbers->size() != 64) {
        Violation("kernel parameter holds 64 numbers", "wrote \"" + text.substr(0, 80) + "\"");
        return;
      }
    }
  }

  void CheckProperties(const std::map<std::string, std::string>& before, bool call) {
    const std::map<std::string, std::string> after = sim::AllProperties();
    if (after.size() > kMaxProperties) Violation("properties stay bounded", std::to_string(after.size()));
    if (!call) return;
    for (const auto& [key, value] : after) {
      const auto old = before.find(key);
      if (old != before.end() && old->second == value) continue;  // not written by this call
      if (value.size() > kMaxPropertyValue) {
        Violation("property values fit a property", key + " holds " + std::to_string(value.size()) + " bytes");
      }
      if (key.rfind(kStatePrefix, 0) == 0 && !IsSensorState(value)) {
        Violation("image-sensor state parses back into P, I, C", key + "=\"" + value + "\"");
      }
      if (key == kErrorIdProperty) CheckErrorIds(old == before.end() ? "" : old->second, value);
    }
  }

  void CheckErrorIds(const std::string& before, const std::string& after) {
    const auto numbers = Numbers(after);
    if (!numbers) {
      Violation("error-id list is a list of numbers", "\"" + after + "\"");
      return;
    }
    if (numbers->size() > 7) Violation("error-id list holds at most seven numbers", "\"" + after + "\"");
    const auto old = Numbers(before);
    std::multiset<int64_t> kept = old ? std::multiset<int64_t>(old->begin(), old->end()) : std::multiset<int64_t>{};
    for (int64_t number : *numbers) {
      const auto found = kept.find(number);
      if (found != kept.end()) {
        kept.erase(found);
      } else if (kFrameworkIds.count(number) == 0) {
        Violation("error-id list adds only framework ids", "added " + std::to_string(number));
        return;
      }
    }
    if (old && !HasDuplicates(*old) && HasDuplicates(*numbers)) {
      Violation("error-id list stays without duplicates", "\"" + before + "\" became \"" + after + "\"");
    }
  }

  // Once-per-process notifications reach the core at most once per process.
  void CheckNotifications() {
    const std::vector<fw::CoreNotification> notifications = fw::CoreNotifications(m_notifications);
    m_notifications += notifications.size();
    for (const fw::CoreNotification& notification : notifications) {
      if (!m_notified.insert(notification.hookName).second) {
        Violation("a once-per-process notification reaches the core once", notification.hookName + " twice");
      }
    }
  }

  const PlayHooks& m_hooks;
  sim::Phone m_phone;
  sim::HookLibrary* m_library = nullptr;
  size_t m_index = 0;
  const Op* m_op = nullptr;
  size_t m_writes = 0;
  size_t m_notifications = 0;
  std::set<std::string> m_notified;
  std::map<size_t, void*> m_popAddresses;
  int m_leaked = -1;
};

}  // namespace

size_t Play(const std::vector<Op>& ops, const PlayHooks& hooks) { return Player(hooks).Run(ops); }

}  // namespace sim::sequence
