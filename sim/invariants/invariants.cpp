#include "sim/invariants/invariants.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>

#include "core/model/monitor/interface/imagesensorstate.h"
#include "explain/sites.h"
#include "hook/src/corearguments.h"
#include "hook/src/errorframeworkid.h"
#include "hook/src/settings.h"
#include "sim/hal/simsensorhal.h"
#include "sim/platform/simdevice.h"
#include "sim/platform/simproperties.h"
#include "sim/platform/simshadowhook.h"
#include "sim/records/records.h"

namespace sim::invariants {
namespace {

using namespace sim::scenario;

constexpr char kStatePrefix[] = "vendor.debug.camera.imagesensorstate.";
constexpr char kLogLevelProperty[] = "persist.vendor.camera.remedium.loglevel";
constexpr size_t kMaxProperties = 256;
constexpr size_t kKernelEntries = 64, kKernelBlock = 16;

// The proxies whose result may differ from the HAL's, and the log lines that
// show the rule allowing it: the rule's own verdict or argument lines.
struct Rule {
  const char* call;
  std::vector<LogSiteId> sites;
  const char* argument = nullptr;               // a rule that writes no line, taken when the core answers this name
  std::optional<int64_t> fixed = std::nullopt;  // a rule that writes no line: the proxy always returns this
};
const std::vector<Rule> kRules = {
    {"SensorProbe",
     {LogSiteId::kProbeProtectionArgument, LogSiteId::kLastRetryVerdict, LogSiteId::kEepromBypassVerdict,
      LogSiteId::kEepromBypassProbeCount}},
    {"EEPROMDataProbe", {LogSiteId::kEepromLastRetryVerdict, LogSiteId::kEepromDataSensorUsage}},
    {"ProbeEEPROM", {LogSiteId::kProbeEepromArgument}},
    {"ReadEEPROMDevice", {LogSiteId::kReadEepromArgument}},
    {"InitializeSensorDevice", {LogSiteId::kInitDeviceChanged, LogSiteId::kInitDeviceSkip}},
    {"LoadSensorInitConfigCmd", {LogSiteId::kInitConfigChanged}},
    {"LoadSensorConfigCmds", {LogSiteId::kConfigCmdsSkip, LogSiteId::kConfigCmdsChanged}},
    {"SensorCreateAndSubmitCommand", {LogSiteId::kSubmitInitialConfigChanged, LogSiteId::kSubmitConfigChanged}},
    {"OISRegisterProvider", {LogSiteId::kOisProviderResult}},
    {"ReadLensPositionData", {}, CamX::coreargument::kReadLensPositionData},
    {"FormatLensPositionData", {}, nullptr, 1},
};

std::optional<std::string> KernelText() {
  FILE* file = std::fopen(sim::HostPath(hal::kProbeResultParameter).c_str(), "rb");
  if (file == nullptr) return std::nullopt;
  std::fclose(file);
  return sim::ReadDeviceFile(hal::kProbeResultParameter);
}

size_t OpenDescriptors() {
  size_t count = 0;
  if (DIR* dir = opendir("/proc/self/fd")) {
    while (readdir(dir) != nullptr) ++count;
    closedir(dir);
  }
  return count;
}

// "<P:S:12><I:F:0><C:-:3>" as the library's own pattern reads it, group by group.
bool IsSensorState(const std::string& value) {
  static const std::regex kGroup(kImageSensorStatePattern);
  static const std::regex kValue(std::string("(") + kImageSensorStatePattern + "){3}");
  if (!std::regex_match(value, kValue)) return false;
  std::string stages;
  for (auto it = std::sregex_iterator(value.begin(), value.end(), kGroup); it != std::sregex_iterator(); ++it) {
    stages += (*it)[1].str();
  }
  return stages == "PIC";
}

bool HasDuplicates(std::vector<int64_t> numbers) {
  std::sort(numbers.begin(), numbers.end());
  return std::adjacent_find(numbers.begin(), numbers.end()) != numbers.end();
}

class Invariants : public Observer {
 public:
  explicit Invariants(Options options) : m_options(std::move(options)) {}
  ~Invariants() override {
    if (m_leaked >= 0) close(m_leaked);
  }

  void RunStarts(const Scenario& scenario) override {
    if (scenario.setup.core && scenario.setup.core->present) m_coreArguments = scenario.setup.core->hookArguments;
  }

  void BeforeStep(const Step& step) override {
    m_before = sim::AllProperties();
    m_descriptors = OpenDescriptors();
    m_kernelText = KernelText();
    m_rejected = sim::RejectedPropertySets().size();
    const auto level = m_before.find(kLogLevelProperty);
    if (level != m_before.end() &&
        !(records::ParseWrittenNumberList(level->second) && std::atoll(level->second.c_str()) <= 4)) {
      m_quietLog = true;  // the library may drop lines for the rest of the process
    }
    if (step.kind != Step::Kind::kSet || !step.changes.core) return;
    for (const auto& [name, arguments] : step.changes.core->hookArguments) m_coreArguments[name] = arguments;
  }

  void AfterStep(const Step& step, const StepOutcome& outcome, const sim::HookLibrary& library) override {
    m_step = &step;
    m_outcome = &outcome;
    if (m_options.leakAfter && *m_options.leakAfter == m_played) m_leaked = open("/proc/self/status", O_RDONLY);
    ++m_played;
    const bool call = step.kind == Step::Kind::kCall && !outcome.aborted;
    if (call && OpenDescriptors() != m_descriptors) {
      Violation("no descriptor left open", std::to_string(m_descriptors) + " open before the call, " +
                                               std::to_string(OpenDescriptors()) + " after");
    }
    if (call && step.hook->halFunction != nullptr) CheckHookStack(library);
    if (call) CheckResult();
    CheckLogLines();
    CheckKernelWrites();
    CheckProperties(call);
    CheckNotifications();
  }

  void ProcessEnds() override {
    m_notified.clear();
    m_quietLog = false;
  }

 private:
  void Violation(const std::string& invariant, const std::string& detail) {
    const std::string message = m_step->path + " #" + std::to_string(m_outcome->repetition + 1) + " (" +
                                m_outcome->title + "): invariant violated: " + invariant + ": " + detail;
    if (m_options.violation) return m_options.violation(message);
    std::fprintf(stderr, "%s\n", message.c_str());
    std::abort();
  }

  // In shared mode a proxy pops the hook stack once, as the last thing it
  // does, with the return address into its caller.
  void CheckHookStack(const sim::HookLibrary& library) {
    std::vector<void*> popped;
    for (const HookStackCall& call : m_outcome->slice.hookStack) {
      if (call.kind == HookStackCall::kPopStack) popped.push_back(call.address);
    }
    if (popped.size() != 1)
      return Violation("the proxy pops the hook stack exactly once", std::to_string(popped.size()) + " pops");
    const std::vector<Event>& events = m_outcome->slice.events;
    auto last = events.rbegin();
    while (last != events.rend() && last->source == "hal" && last->text.rfind("unscript", 0) == 0) ++last;
    if (last == events.rend() || last->source != "shadowhook" || last->text.rfind("pop_stack", 0) != 0) {
      return Violation("the pop is the proxy's last action",
                       last == events.rend() ? std::string("no events") : last->source + ": " + last->text);
    }
    Dl_info info = {};
    Dl_info proxy = {};
    if (dladdr(popped.front(), &info) == 0 || dladdr(library.Symbol(m_step->hook->mangled), &proxy) == 0 ||
        info.dli_fbase == proxy.dli_fbase) {
      return Violation("the proxy pops with its own return address", "the address is not in the proxy's caller");
    }
    auto [known, added] = m_popAddresses.emplace(m_step->hook, popped.front());
    if (!added && known->second != popped.front()) {
      Violation("the proxy pops with its own return address", "a different return address from the same call site");
    }
  }

  // A proxy returns what the HAL returned unless the call shows the rule that allows otherwise.
  void CheckResult() {
    const Value* result = m_outcome->observed ? m_outcome->observed->Find("result") : nullptr;
    if (result == nullptr || m_outcome->halResults.empty()) return;
    const int64_t got = std::get<int64_t>(*result);
    const int64_t hal = m_outcome->halResults.back();
    if (got == hal) return;
    for (const Rule& rule : kRules) {
      if (m_step->hook->call != std::string(rule.call)) continue;
      if (m_quietLog || rule.fixed == got || (rule.argument != nullptr && m_coreArguments[rule.argument].size() >= 2)) {
        return;
      }
      for (const sim::LogLine& line : m_outcome->slice.log) {
        explain::SiteMatch match;
        if (explain::MatchSite(line.text, &match) &&
            std::find(rule.sites.begin(), rule.sites.end(), match.id) != rule.sites.end()) {
          return;
        }
      }
    }
    Violation("the result differs from the HAL's only by a rule the call shows",
              "returned " + std::to_string(got) + ", the HAL " + std::to_string(hal));
  }

  // Every line the library writes is one explain's reader knows (a site of the joined table,
  // its format matched): a line the tools could not read would be a decision lost in the field.
  void CheckLogLines() {
    for (const sim::LogLine& line : m_outcome->slice.log) {
      explain::SiteMatch match;
      if (line.tag == "REMEDIUM" && !explain::MatchSite(line.text, &match)) {
        Violation("every library log line is a known site of explain's reader", line.text.substr(0, 200));
      }
    }
  }

  // A kernel parameter write is the whole table (64 numbers in a 1024-byte
  // NUL-padded value), and changes only the entries of the step's camera.
  void CheckKernelWrites() {
    const CallArgs& a = m_step->args;
    // The table as the library read it before the call.
    std::optional<std::vector<int64_t>> previous;
    if (m_kernelText) previous = records::ParseNumberList(*m_kernelText, kKernelEntries);
    for (const SysfsWrite& write : m_outcome->slice.kernelWrites) {
      if (write.devicePath != hal::kProbeResultParameter) continue;
      if (write.bytes.size() != 1024)
        return Violation("kernel parameter written as 1024 bytes", std::to_string(write.bytes.size()) + " bytes");
      const size_t nul = write.bytes.find('\0');
      const std::string text = write.bytes.substr(0, nul);
      if (nul == std::string::npos || write.bytes.find_first_not_of('\0', nul) != std::string::npos) {
        return Violation("kernel parameter NUL-padded", "text and padding interleave");
      }
      const auto numbers = records::ParseWrittenNumberList(text);
      if (!numbers || numbers->size() != kKernelEntries)
        return Violation("kernel parameter holds 64 numbers", "wrote \"" + text.substr(0, 80) + "\"");
      for (size_t i = 0; previous && previous->size() == kKernelEntries && a.camera && i < kKernelEntries; ++i) {
        if ((*numbers)[i] != (*previous)[i] && i % kKernelBlock != *a.camera % kKernelBlock) {
          return Violation("a kernel parameter write changes only its camera's entries",
                           "entry " + std::to_string(i) + " changed by a call for camera " + std::to_string(*a.camera));
        }
      }
      previous = numbers;
    }
  }

  void CheckProperties(bool call) {
    const std::map<std::string, std::string> after = sim::AllProperties();
    if (after.size() > kMaxProperties) Violation("properties stay bounded", std::to_string(after.size()));
    if (!call) return;
    for (const RejectedPropertySet& rejected : sim::RejectedPropertySets(m_rejected)) {
      if (CopiedFromSettings(rejected.key)) continue;
      Violation("every property the library sets succeeds", rejected.key + " rejected: " + rejected.reason);
    }
    for (const auto& [key, value] : after) {
      const auto old = m_before.find(key);
      if (old != m_before.end() && old->second == value) continue;  // not written by this call
      if (key.rfind(kStatePrefix, 0) == 0 && (!IsSensorState(value) || !records::ExplainImageSensorState(value).ok)) {
        Violation("image-sensor state reads back as P, I, C", key + "=\"" + value + "\"");
      }
      if (key == CamX::kErrorFrameworkIdProperty) CheckErrorIds(old == m_before.end() ? "" : old->second, value);
    }
  }

  // The five tuning switches are copied from the override-settings file as
  // they stand, unchecked: a value too long for a property fails silently
  // there by design, so its refusal is the file's, not the library's.
  static bool CopiedFromSettings(const std::string& property) {
    for (const CamX::RecoveryRow& row : CamX::kRecoveryRows) {
      if (property == row.property) {
        return sim::ReadDeviceFile(kOverrideSettingsDevicePath).find(row.key) != std::string::npos;
      }
    }
    return false;
  }

  void CheckErrorIds(const std::string& before, const std::string& after) {
    const auto numbers = records::ParseWrittenNumberList(after);
    if (!numbers || !records::ExplainErrorFrameworkIds(after).ok)
      return Violation("error-id list reads back as a list of numbers", "\"" + after + "\"");
    if (numbers->size() > 7) Violation("error-id list holds at most seven numbers", "\"" + after + "\"");
    static const std::set<int64_t> kFrameworkIds = [] {
      std::set<int64_t> ids(std::begin(CamX::kFrameworkIdOfCamera), std::end(CamX::kFrameworkIdOfCamera));
      ids.insert(0);
      return ids;
    }();
    // The ids before, as the library reads them: numbers up to the first text that is none.
    std::vector<int64_t> old;
    std::istringstream in(before);
    for (int number = 0; in >> number; in.peek() == ',' ? in.ignore() : in) old.push_back(number);
    std::multiset<int64_t> kept(old.begin(), old.end());
    for (int64_t number : *numbers) {
      const auto found = kept.find(number);
      if (found != kept.end()) {
        kept.erase(found);
      } else if (kFrameworkIds.count(number) == 0) {
        return Violation("error-id list adds only framework ids", "added " + std::to_string(number));
      }
    }
    if (!HasDuplicates(old) && HasDuplicates(*numbers)) {
      Violation("error-id list stays without duplicates", "\"" + before + "\" became \"" + after + "\"");
    }
  }

  // Once-per-process notifications reach the core at most once per process
  // and flag: ReadLensPositionDataHook has two flags, the delay's and the
  // replacement's.
  void CheckNotifications() {
    for (const framework::CoreNotification& notification : m_outcome->slice.notifications) {
      const size_t flags = notification.hookName == "ReadLensPositionDataHook" ? 2 : 1;
      if (++m_notified[notification.hookName] > flags) {
        Violation("a once-per-process notification reaches the core once", notification.hookName + " twice");
      }
    }
  }

  Options m_options;
  const Step* m_step = nullptr;
  const StepOutcome* m_outcome = nullptr;
  size_t m_played = 0;
  std::map<std::string, std::string> m_before;
  size_t m_descriptors = 0;
  std::optional<std::string> m_kernelText;
  size_t m_rejected = 0;
  bool m_quietLog = false;
  std::map<std::string, std::vector<std::string>> m_coreArguments;
  std::map<std::string, size_t> m_notified;
  std::map<const CatalogueEntry*, void*> m_popAddresses;
  int m_leaked = -1;
};

}  // namespace

std::unique_ptr<Observer> Make(Options options) { return std::make_unique<Invariants>(std::move(options)); }

}  // namespace sim::invariants
