#include "sim/sequence/sequence.h"

#include <climits>

#include <fuzzer/FuzzedDataProvider.h>

#include "hook/src/errorframeworkid.h"
#include "sim/scenario/arguments.h"

namespace sim::sequence {
namespace {

namespace sc = sim::scenario;
using sc::Step;

// The properties the library reads or writes, and values that reach its
// parsers' edges (the last is a number list one entry short of the
// property's limit, so that adding to it does not fit).
const std::vector<std::string> kPropertyKeys = {
    "persist.vendor.camera.cloud.remedium.modswitch", CamX::kErrorFrameworkIdProperty,
    "persist.vendor.camera.remedium.loglevel",        "persist.vendor.camera.enableEarlyPipelineActivate",
    "persist.vendor.camera.enableSATWideAlwaysOn",    "persist.vendor.camera.isEarlysettingsEnable",
    "persist.vendor.camera.isSatFollowFingersOpt",    "vendor.debug.camera.numPCRsBeforeStreamOn",
    "vendor.debug.camera.imagesensorstate.0",         "vendor.debug.camera.imagesensorstate.1",
    "vendor.debug.camera.imagesensorstate.2",         "vendor.debug.camera.imagesensorstate.15",
    "vendor.debug.camera.imagesensorstate.16"};
std::string AlmostFullList() {
  std::string list = "3";
  while (list.size() < 89) list += ",3";
  return list;
}
const std::vector<std::string> kPropertyValues = {
    "0",       "1",     "64",    "65535",           "-1",
    "2,1",     "2,1,3", "1,1,1", "9,9,9,9,9,9,9,9", "<P:S:10><I:F:20><C:-:0>",
    "<P:S:1>", "",      "true",  AlmostFullList()};
const std::vector<std::string> kSensorTypes = {"rear", "front", "aux", "wide", ""};

// Steps a byte sequence holds, in the order of their first byte's values.
enum class Op : uint8_t {
  kCall,              // a proxy of the catalogue
  kCore,              // framework core removed or installed
  kSwitch,            // a core switch open or closed
  kHookArguments,     // the core's arguments for one name
  kMessageCenter,     // removed, installed, or without its send entry
  kSensorType,        // message centre: a sensor's type
  kMostProbed,        // message centre: the most-probed answer of a type
  kProperty,          // a property set or removed
  kKernelParameter,   // the kernel parameter file
  kOverrideSettings,  // the override-settings file
  kRestart,
  kReboot,
};

class Reader : public sc::Codec {
 public:
  Reader(const uint8_t* data, size_t size) : m_data(data, size) {}
  void Offset(uint64_t& offset, uint64_t range) override { offset = m_data.ConsumeIntegralInRange<uint64_t>(0, range); }
  void Text(std::string& text, size_t max) override { text = m_data.ConsumeRandomLengthString(max); }
  bool More() override { return m_data.remaining_bytes() > 0; }

 private:
  FuzzedDataProvider m_data;
};

// Writes what Reader reads back as the same values: numbers at the end, most
// significant byte first; strings at the front (a backslash escapes a
// backslash; a backslash and any other byte end the string).
class Writer : public sc::Codec {
 public:
  void Offset(uint64_t& offset, uint64_t range) override {
    size_t bytes = 0;
    while (bytes < sizeof(uint64_t) && (range >> (bytes * CHAR_BIT)) > 0) ++bytes;
    for (size_t i = bytes; i > 0; --i) m_back.push_back(static_cast<uint8_t>(offset >> ((i - 1) * CHAR_BIT)));
  }
  void Text(std::string& value, size_t max) override {
    value.resize(std::min(value.size(), max));
    for (char c : value) {
      m_front.push_back(static_cast<uint8_t>(c));
      if (c == '\\') m_front.push_back('\\');
    }
    if (value.size() < max) m_front.insert(m_front.end(), {'\\', 'n'});
  }
  bool More() override { return true; }
  std::vector<uint8_t> Bytes() const {
    std::vector<uint8_t> bytes = m_front;
    bytes.insert(bytes.end(), m_back.rbegin(), m_back.rend());
    return bytes;
  }

 private:
  std::vector<uint8_t> m_front, m_back;
};

// What set steps leave out: whether the core and message centre are there.
struct Phone {
  bool core = false, centre = false, send = true;
};

std::vector<std::string> CoreArgumentNames() {
  std::vector<std::string> names;
  for (const CoreArgument* argument : CoreArguments()) names.push_back(argument->name);
  return names;
}

Op OpOf(const Step& step) {
  if (step.kind == Step::Kind::kCall) return Op::kCall;
  if (step.kind == Step::Kind::kRestart) return Op::kRestart;
  if (step.kind == Step::Kind::kReboot) return Op::kReboot;
  const sc::Changes& c = step.changes;
  if (c.core)
    return !c.core->switches.empty() ? Op::kSwitch : !c.core->hookArguments.empty() ? Op::kHookArguments : Op::kCore;
  if (c.messageCenter) {
    return !c.messageCenter->sensorTypes.empty()  ? Op::kSensorType
           : !c.messageCenter->mostProbed.empty() ? Op::kMostProbed
                                                  : Op::kMessageCenter;
  }
  if (!c.properties.empty()) return Op::kProperty;
  return c.kernelParameter ? Op::kKernelParameter : Op::kOverrideSettings;
}

// A map's first entry, or a default one.
template <typename Map>
std::pair<typename Map::key_type, typename Map::mapped_type> First(const Map& map) {
  if (map.empty()) return {};
  return {map.begin()->first, map.begin()->second};
}

// One step's bytes: reading fills `step`, writing takes a step holding one thing.
void CodeStep(sc::Codec& c, Step& step, Phone& phone) {
  auto op = static_cast<uint8_t>(OpOf(step));
  c.Number(op, uint8_t{0}, static_cast<uint8_t>(Op::kReboot));
  sc::Changes& changes = step.changes;
  const auto core = [&]() -> sc::CoreSetup& {
    if (!changes.core) changes.core = sc::CoreSetup{phone.core, {}, {}};
    return *changes.core;
  };
  const auto centre = [&]() -> sc::MessageCenterSetup& {
    if (!changes.messageCenter) changes.messageCenter = sc::MessageCenterSetup{phone.centre, phone.send, {}, {}};
    return *changes.messageCenter;
  };
  step.kind = Step::Kind::kSet;
  switch (static_cast<Op>(op)) {
    case Op::kCall: {
      step.kind = Step::Kind::kCall;
      auto entry = static_cast<size_t>(step.hook != nullptr ? step.hook - Catalogue().data() : 0);
      c.Number(entry, size_t{0}, Catalogue().size() - 1);
      step.hook = &Catalogue()[entry];
      sc::CodeCall(c, step);
      break;
    }
    case Op::kCore: {  // a core library without its entry stops the process by design: not played
      c.Bool(core().present);
      phone.core = core().present;
      break;
    }
    case Op::kSwitch: {
      auto [kind, open] = First(core().switches);
      c.Number(kind, -1, 70);
      c.Bool(open);
      core().switches = {{kind, open}};
      break;
    }
    case Op::kHookArguments: {
      auto [name, texts] = First(core().hookArguments);
      c.Pick(name, CoreArgumentNames());
      const CoreArgument& argument = *FindCoreArgument(name);
      size_t count = texts.size();
      c.Number(count, size_t{0}, size_t{3});
      texts.resize(count);
      for (size_t i = 0; i < count; ++i) {
        const std::vector<std::string>& pool = argument.positions[std::min(i, argument.positions.size() - 1)];
        argument.anyText ? c.PickOrText(texts[i], pool, 48) : c.Pick(texts[i], pool);
      }
      core().hookArguments = {{name, texts}};
      break;
    }
    case Op::kMessageCenter: {
      uint8_t state = !centre().present ? 0 : centre().withSend ? 1 : 2;
      c.Number(state, uint8_t{0}, uint8_t{2});
      phone.centre = centre().present = state != 0;
      phone.send = centre().withSend = state != 2;
      break;
    }
    case Op::kSensorType: {
      auto [sensor, type] = First(centre().sensorTypes);
      c.Pick(sensor, sc::kSensors);
      c.PickOrText(type, kSensorTypes, 16);
      centre().sensorTypes = {{sensor, type}};
      break;
    }
    case Op::kMostProbed: {
      auto [type, answer] = First(centre().mostProbed);
      c.PickOrText(type, kSensorTypes, 16);
      c.Pick(answer.sensor, sc::kSensors);
      c.Number(answer.recordCount, int64_t{-1}, int64_t{5});
      centre().mostProbed = {{type, answer}};
      break;
    }
    case Op::kProperty: {
      auto [key, value] = First(changes.properties);
      c.Pick(key, kPropertyKeys);
      c.Maybe(value, [&c](std::string& text) { c.PickOrText(text, kPropertyValues, 100); });
      changes.properties = {{key, value}};
      break;
    }
    case Op::kKernelParameter: {
      // 0 no file, 1 empty, 2..4 a table of 63, 64 or 65 values all `fill`, 5 any text.
      sc::KernelParameter& kernel = changes.kernelParameter
                                        ? *changes.kernelParameter
                                        : changes.kernelParameter.emplace(sc::KernelParameter{false, ""});
      uint8_t choice = kernel.present ? 5 : 0;
      c.Number(choice, uint8_t{0}, uint8_t{5});
      int32_t fill = 0;
      if (choice == 5) c.Text(kernel.text, 1100);
      if (choice >= 2 && choice <= 4) c.Number(fill, int32_t{-2}, int32_t{3});
      if (choice >= 1 && choice <= 4) kernel.text.clear();
      for (int i = 0; choice >= 2 && choice <= 4 && i < 61 + choice; ++i)
        kernel.text += (i ? "," : "") + std::to_string(fill);
      kernel.present = choice != 0;
      break;
    }
    case Op::kOverrideSettings: {
      // 0 no file, 1 the two keys the library reads, 2 any text.
      auto& settings = changes.overrideSettings ? *changes.overrideSettings : changes.overrideSettings.emplace();
      uint8_t choice = settings ? 2 : 0;
      c.Number(choice, uint8_t{0}, uint8_t{2});
      int32_t retries = 0, modules = 0;
      std::string text = settings.value_or("");
      if (choice == 1) c.Number(retries, int32_t{-1}, int32_t{5});
      if (choice == 1) c.Number(modules, int32_t{-1}, int32_t{5});
      if (choice == 1)
        text = "SensorModuleRetryTimes=" + std::to_string(retries) + "\nsensorModuleNumber=" + std::to_string(modules) +
               "\n";
      if (choice == 2) c.Text(text, 200);
      settings = choice == 0 ? std::nullopt : std::optional(text);
      break;
    }
    case Op::kRestart:
    case Op::kReboot:
      step.kind = static_cast<Op>(op) == Op::kRestart ? Step::Kind::kRestart : Step::Kind::kReboot;
      break;
  }
}

sc::Scenario FuzzerPhone(const std::string& name) {
  sc::Scenario scenario;
  scenario.name = name;
  scenario.description = "A call sequence of the call-sequence fuzzer.";
  for (uint32_t id = 0; id <= 17; ++id)
    scenario.cameras.push_back({id, id, "", sc::kSensors, sc::kEeproms, sc::kActuators});
  scenario.setup = {sc::CoreSetup{false, {}, {}},
                    sc::MessageCenterSetup{false, true, {}, {}},
                    {},
                    sc::KernelParameter{false, ""},
                    std::optional<std::string>(),
                    100};
  return scenario;
}

// The changes of a set step (or a setup) as steps holding one thing each.
void Split(const sc::Changes& changes, Phone& phone, std::vector<Step>* steps) {
  const auto add = [steps]() -> sc::Changes& {
    Step& step = steps->emplace_back();
    step.kind = Step::Kind::kSet;
    return step.changes;
  };
  if (const auto& core = changes.core) {
    if (core->present != phone.core || (core->switches.empty() && core->hookArguments.empty())) {
      add().core = sc::CoreSetup{core->present, {}, {}};
    }
    phone.core = core->present;
    for (const auto& item : core->switches) add().core = sc::CoreSetup{core->present, {item}, {}};
    for (const auto& item : core->hookArguments) add().core = sc::CoreSetup{core->present, {}, {item}};
  }
  if (const auto& centre = changes.messageCenter) {
    if (centre->present != phone.centre || centre->withSend != phone.send ||
        (centre->sensorTypes.empty() && centre->mostProbed.empty())) {
      add().messageCenter = sc::MessageCenterSetup{centre->present, centre->withSend, {}, {}};
    }
    phone.centre = centre->present;
    phone.send = centre->withSend;
    for (const auto& item : centre->sensorTypes)
      add().messageCenter = sc::MessageCenterSetup{centre->present, centre->withSend, {item}, {}};
    for (const auto& item : centre->mostProbed)
      add().messageCenter = sc::MessageCenterSetup{centre->present, centre->withSend, {}, {item}};
  }
  for (const auto& item : changes.properties) {
    if (std::find(kPropertyKeys.begin(), kPropertyKeys.end(), item.first) != kPropertyKeys.end())
      add().properties = {item};
  }
  if (changes.kernelParameter) add().kernelParameter = changes.kernelParameter;
  if (changes.overrideSettings) add().overrideSettings = changes.overrideSettings;
}

}  // namespace

sc::Scenario Decode(const uint8_t* data, size_t size, const std::string& name) {
  Reader reader(data, size);
  sc::Scenario scenario = FuzzerPhone(name);
  Phone phone;
  while (scenario.steps.size() < kMaxSteps && reader.More()) {
    Step& step = scenario.steps.emplace_back();
    step.path = "steps[" + std::to_string(scenario.steps.size() - 1) + "]";
    CodeStep(reader, step, phone);
    if (step.kind == Step::Kind::kCall) ++scenario.callCount;
  }
  return scenario;
}

std::vector<uint8_t> Encode(const sc::Scenario& scenario) {
  Phone phone;
  std::vector<Step> steps;
  const sc::Changes& setup = scenario.setup;
  const bool fuzzerSetup = !setup.core->present && setup.core->switches.empty() && setup.core->hookArguments.empty() &&
                           !setup.messageCenter->present && setup.properties.empty() &&
                           !setup.kernelParameter->present && !*setup.overrideSettings;
  if (!fuzzerSetup) {
    Split(setup, phone, &steps);
    steps.emplace_back().kind = Step::Kind::kRestart;  // the scenario's process starts on its setup
  }
  for (const Step& step : scenario.steps) {
    for (int repetition = 0; repetition < step.repeat && steps.size() < kMaxSteps; ++repetition) {
      if (step.kind == Step::Kind::kSet) {
        Split(step.changes, phone, &steps);
        continue;
      }
      Step& copy = steps.emplace_back();
      copy.kind = step.kind;
      copy.hook = step.hook;
      copy.args = step.args;
      copy.hal.after = step.hal.calls.empty() ? step.hal.after : step.hal.calls.front();
    }
  }
  Writer writer;
  phone = Phone{};
  for (size_t i = 0; i < steps.size() && i < kMaxSteps; ++i) CodeStep(writer, steps[i], phone);
  return writer.Bytes();
}

std::string Describe(const Step& step) {
  if (step.kind == Step::Kind::kRestart) return "restart the camera service";
  if (step.kind == Step::Kind::kReboot) return "reboot the phone";
  if (step.kind == Step::Kind::kSet) {
    sc::Scenario one;
    one.steps = {step};
    return "set " + sc::ScenarioJson(one)["steps"][0]["set"].dump(-1, ' ', false, sc::Json::error_handler_t::replace);
  }
  std::string text = sc::Title(step);
  if (!step.hook->returnsNothing) text += " hal " + std::to_string(step.hal.after.result);
  if (step.hal.after.kernel) text += " kernel " + std::to_string(*step.hal.after.kernel);
  return text;
}

}  // namespace sim::sequence
