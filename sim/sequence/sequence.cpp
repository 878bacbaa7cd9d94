#include "sim/sequence/sequence.h"

#include <algorithm>
#include <climits>
#include <limits>
#include <type_traits>

#include <fuzzer/FuzzedDataProvider.h>
#include <nlohmann/json.hpp>

#include "hook/src/errorframeworkid.h"
#include "sim/scenario/scenario.h"

namespace sim::sequence {

const std::vector<std::string> kSensors = {"s5kgm2_rear", "ov16a1q_front", "imx582_rear",
                                           "s5k3m5_aux",  "gc02m1_macro",  "macro_ultra_wide_tele_depth_front_cam"};
const std::vector<std::string> kEeproms = {"s5kgm2_rear_gt24p64", "imx582_rear_otp", "ov16a1q_front_otp"};
const std::vector<std::string> kActuators = {"s5kgm2_rear_ak7377", "imx582_rear_dw9800"};
const std::vector<std::string> kPropertyKeys = {
    "persist.vendor.camera.cloud.remedium.modswitch", CamX::kErrorFrameworkIdProperty,
    "persist.vendor.camera.remedium.loglevel",        "persist.vendor.camera.enableEarlyPipelineActivate",
    "persist.vendor.camera.enableSATWideAlwaysOn",    "persist.vendor.camera.isEarlysettingsEnable",
    "persist.vendor.camera.isSatFollowFingersOpt",    "vendor.debug.camera.numPCRsBeforeStreamOn",
    "vendor.debug.camera.imagesensorstate.0",         "vendor.debug.camera.imagesensorstate.1",
    "vendor.debug.camera.imagesensorstate.2",         "vendor.debug.camera.imagesensorstate.15",
    "vendor.debug.camera.imagesensorstate.16"};

namespace {

using Kind = Op::Kind;

const std::vector<std::string> kHookNames = {"SensorProbeProtection", "SensorProbeI2CError",
                                             "ProbeEEPROMProtection", "EEPROMI2C",
                                             "SensorProbeHook",       "EEPROMDataProbeHook"};
const std::vector<std::string> kArgumentTexts = {
    "s5kgm2", "ov16a1q_front", "", "rear", "24", "3", "macro_ultra_wide_tele_depth_front"};
const std::vector<std::string> kSensorTypes = {"rear", "front", "aux", "wide", ""};
const std::vector<std::string> kPropertyValues = {
    "0",       "1", "64",  "65535", "-1", "2,1", "2,1,3", "1,1,1", "9,9,9,9,9,9,9,9", "<P:S:10><I:F:20><C:-:0>",
    "<P:S:1>", "",  "true"};

// Reads operations with FuzzedDataProvider.
class Reader {
 public:
  Reader(const uint8_t* data, size_t size) : m_data(data, size) {}
  template <typename T>
  void Int(T& value, T low, T high) {
    value = m_data.ConsumeIntegralInRange<T>(low, high);
  }
  void Bool(bool& value) { value = m_data.ConsumeBool(); }
  void Text(std::string& value, size_t max) { value = m_data.ConsumeRandomLengthString(max); }
  bool More() { return m_data.remaining_bytes() > 0; }

 private:
  FuzzedDataProvider m_data;
};

// Writes what Reader reads back as the same values: FuzzedDataProvider takes
// numbers from the end of the data (most significant byte first) and strings
// from the front (a backslash escapes a backslash; any other pair ends it).
class Writer {
 public:
  template <typename T>
  void Int(T& value, T low, T high) {
    const uint64_t range = static_cast<uint64_t>(high) - static_cast<uint64_t>(low);
    const uint64_t offset = std::min(static_cast<uint64_t>(value) - static_cast<uint64_t>(low), range);
    size_t bytes = 0;
    while (bytes < sizeof(T) && (range >> (bytes * CHAR_BIT)) > 0) ++bytes;
    for (size_t i = bytes; i > 0; --i) m_back.push_back(static_cast<uint8_t>(offset >> ((i - 1) * CHAR_BIT)));
  }
  void Bool(bool& value) {
    uint8_t byte = value ? 1 : 0;
    Int<uint8_t>(byte, 0, 255);
  }
  void Text(std::string& value, size_t max) {
    const std::string text = value.substr(0, max);
    for (char c : text) {
      m_front.push_back(static_cast<uint8_t>(c));
      if (c == '\\') m_front.push_back('\\');
    }
    if (text.size() < max) {
      m_front.push_back('\\');
      m_front.push_back('n');
    }
  }
  bool More() { return true; }
  std::vector<uint8_t> Bytes() const {
    std::vector<uint8_t> bytes = m_front;
    bytes.insert(bytes.end(), m_back.rbegin(), m_back.rend());
    return bytes;
  }

 private:
  std::vector<uint8_t> m_front, m_back;
};

// A name from a pool; reading sets it, writing finds it (unknown: the first).
template <typename Codec>
void Pooled(Codec& c, std::string& name, const std::vector<std::string>& pool) {
  const auto found = std::find(pool.begin(), pool.end(), name);
  size_t index = found == pool.end() ? 0 : static_cast<size_t>(found - pool.begin());
  c.Int(index, size_t{0}, pool.size() - 1);
  name = pool[index];
}

// A name from a pool or any text (the last choice).
template <typename Codec>
void PooledOrText(Codec& c, std::string& text, const std::vector<std::string>& pool, size_t max) {
  const auto found = std::find(pool.begin(), pool.end(), text);
  size_t index = found == pool.end() ? pool.size() : static_cast<size_t>(found - pool.begin());
  c.Int(index, size_t{0}, pool.size());
  if (index < pool.size()) {
    text = pool[index];
  } else {
    c.Text(text, max);
  }
}

template <typename Codec>
void Camera(Codec& c, std::optional<uint32_t>& camera, uint32_t max) {
  uint32_t id = std::min(camera.value_or(0), max);
  c.Int(id, uint32_t{0}, max);
  camera = id;
}

template <typename Codec>
void Optional(Codec& c, std::optional<uint8_t>& value) {
  bool has = value.has_value();
  c.Bool(has);
  uint8_t byte = value.value_or(0);
  if (has) c.Int(byte, uint8_t{0}, uint8_t{255});
  value = has ? std::optional(byte) : std::nullopt;
}

template <typename Codec>
void CallCodec(Codec& c, Op& op) {
  const std::vector<CatalogueEntry>& catalogue = Catalogue();
  c.Int(op.entry, size_t{0}, catalogue.size() - 1);
  const CatalogueEntry& entry = catalogue[op.entry];
  CallArgs& a = op.args;
  if (entry.invoke == nullptr) {  // CamX::SetErrorFrameworkId(id, isError)
    Camera(c, a.camera, kMaxCamera);
    c.Int(op.isError, int32_t{-1}, int32_t{2});
    return;
  }
  for (Arg arg : entry.args) {
    switch (arg) {
      case Arg::kCamera:
        Camera(c, a.camera, kMaxCamera);
        break;
      case Arg::kCameraOrNull:
        c.Bool(a.cameraAbsent);
        if (a.cameraAbsent) {
          a.camera.reset();
        } else {
          Camera(c, a.camera, kMaxCamera);
        }
        break;
      case Arg::kBringUpCamera:  // the library stops the process beyond its 16-entry slot table
        Camera(c, a.camera, 15);
        break;
      case Arg::kSubmitCamera:
        Camera(c, a.camera, a.opcode == 2 || a.opcode == 4 ? 15 : kMaxCamera);
        break;
      case Arg::kModuleCamera:  // names the default module only
        break;
      case Arg::kSlot: {
        Camera(c, a.slot, kMaxCamera + 2);
        break;
      }
      case Arg::kSensor:
        Pooled(c, a.sensor, kSensors);
        break;
      case Arg::kEeprom:
        Pooled(c, a.eeprom, kEeproms);
        break;
      case Arg::kActuator: {
        bool has = a.actuator.has_value();
        c.Bool(has);
        std::string name = a.actuator.value_or("");
        if (has) Pooled(c, name, kActuators);
        a.actuator = has ? std::optional(name) : std::nullopt;
        break;
      }
      case Arg::kOpcode:
        c.Int(a.opcode, uint32_t{0}, uint32_t{5});
        break;
      case Arg::kSlaveAddress:
        c.Int(a.slaveAddress, uint32_t{0}, uint32_t{0x1FF});
        break;
      case Arg::kSlaveAddress16:
        c.Int(a.slaveAddress, uint32_t{0}, uint32_t{0xFFFF});
        break;
      case Arg::kData:
        c.Bool(a.dataNull);
        if (!a.dataNull) {
          c.Int(a.dataLength, uint32_t{1024}, uint32_t{1100});
          c.Int(a.fill, uint8_t{0}, uint8_t{255});
        }
        break;
      case Arg::kSize: {
        bool has = a.size.has_value();
        c.Bool(has);
        int32_t size = a.size.value_or(0);
        if (has) c.Int(size, int32_t{-2}, int32_t{1200});
        a.size = has ? std::optional(size) : std::nullopt;
        break;
      }
      case Arg::kTimestamps: {
        size_t count = a.timestamps.size();
        c.Int(count, size_t{0}, size_t{8});
        a.timestamps.resize(count);
        for (int64_t& stamp : a.timestamps) {
          c.Int(stamp, std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max());
        }
        break;
      }
      case Arg::kSensorType:
        c.Int(a.sensorType, int32_t{-1}, int32_t{4});
        break;
      case Arg::kMessage:
        c.Bool(a.messageNull);
        if (!a.messageNull) {
          c.Int(a.messageType, uint32_t{0}, uint32_t{4});
          c.Int(a.messageValue, uint64_t{0}, std::numeric_limits<uint64_t>::max());
        }
        break;
      case Arg::kUserData:
        c.Bool(a.userDataNull);
        break;
      case Arg::kRecordControl:
        Optional(c, a.recordControl);
        break;
      case Arg::kTagRegistered:
        c.Bool(a.tagRegistered);
        break;
      case Arg::kTagZero:
        Optional(c, a.tagZero);
        break;
      case Arg::kKernel: {
        bool has = op.kernel.has_value();
        c.Bool(has);
        int64_t kernel = op.kernel.value_or(0);
        if (has) c.Int(kernel, int64_t{-3}, int64_t{3});
        op.kernel = has ? std::optional(kernel) : std::nullopt;
        break;
      }
    }
  }
  if (!entry.returnsNothing) c.Int(op.hal, int32_t{-1}, int32_t{6});
}

// The kernel parameter's text for choice `number`: 1 empty, 2..4 a table of
// 63, 64 or 65 values all `fill`, 5 any text.
std::string KernelText(const Op& op) {
  if (op.number == 5) return op.text;
  const size_t count = op.number == 1 ? 0 : static_cast<size_t>(61 + op.number);
  std::string text;
  for (size_t i = 0; i < count; ++i) text += (i ? "," : "") + std::to_string(op.hal);
  return text;
}

// The override-settings text for choice `number`: 1 the two known keys, 2 any text.
std::string OverrideText(const Op& op) {
  if (op.number == 2) return op.text;
  return "SensorModuleRetryTimes=" + std::to_string(op.hal) + "\nsensorModuleNumber=" + std::to_string(op.isError) +
         "\n";
}

template <typename Codec>
void OpCodec(Codec& c, Op& op) {
  uint8_t kind = static_cast<uint8_t>(op.kind);
  c.Int(kind, uint8_t{0}, static_cast<uint8_t>(Kind::kReboot));
  op.kind = static_cast<Kind>(kind);
  switch (op.kind) {
    case Kind::kCall:
      CallCodec(c, op);
      break;
    case Kind::kCore:  // a core library without its entry stops the process by design: not played
      c.Int(op.number, int64_t{0}, int64_t{1});
      break;
    case Kind::kMessageCenter:
      c.Int(op.number, int64_t{0}, int64_t{2});
      break;
    case Kind::kSwitch:
      c.Int(op.number, int64_t{-1}, int64_t{70});
      c.Bool(op.flag);
      break;
    case Kind::kHookArguments: {
      Pooled(c, op.name, kHookNames);
      size_t count = op.texts.size();
      c.Int(count, size_t{0}, size_t{3});
      op.texts.resize(count);
      for (std::string& text : op.texts) PooledOrText(c, text, kArgumentTexts, 48);
      break;
    }
    case Kind::kSensorType:
      Pooled(c, op.name, kSensors);
      PooledOrText(c, op.text, kSensorTypes, 16);
      break;
    case Kind::kMostProbed:
      PooledOrText(c, op.text, kSensorTypes, 16);
      Pooled(c, op.name, kSensors);
      c.Int(op.number, int64_t{-1}, int64_t{5});
      break;
    case Kind::kProperty:
      Pooled(c, op.name, kPropertyKeys);
      c.Bool(op.flag);
      if (op.flag) PooledOrText(c, op.text, kPropertyValues, 100);
      break;
    case Kind::kKernelParameter:
      c.Int(op.number, int64_t{0}, int64_t{5});
      if (op.number == 5) c.Text(op.text, 1100);
      if (op.number >= 2 && op.number <= 4) c.Int(op.hal, int32_t{-2}, int32_t{3});
      op.text = op.number == 0 ? "" : KernelText(op);
      break;
    case Kind::kOverrideSettings:
      c.Int(op.number, int64_t{0}, int64_t{2});
      if (op.number == 2) c.Text(op.text, 200);
      if (op.number == 1) {
        c.Int(op.hal, int32_t{-1}, int32_t{5});
        c.Int(op.isError, int32_t{-1}, int32_t{5});
      }
      op.text = op.number == 0 ? "" : OverrideText(op);
      break;
    case Kind::kRestart:
    case Kind::kReboot:
      break;
  }
}

std::string Names(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) joined += (joined.empty() ? "\"" : ", \"") + text + "\"";
  return joined;
}

}  // namespace

std::vector<Op> Decode(const uint8_t* data, size_t size) {
  Reader reader(data, size);
  std::vector<Op> ops;
  while (ops.size() < kMaxOps && reader.More()) OpCodec(reader, ops.emplace_back());
  return ops;
}

std::vector<uint8_t> Encode(const std::vector<Op>& ops) {
  Writer writer;
  for (size_t i = 0; i < ops.size() && i < kMaxOps; ++i) {
    Op op = ops[i];
    OpCodec(writer, op);
  }
  return writer.Bytes();
}

std::string Describe(const Op& op) {
  switch (op.kind) {
    case Kind::kCall: {
      const CatalogueEntry& entry = Catalogue()[op.entry];
      if (entry.invoke == nullptr) {
        return "SetErrorFrameworkId(" + std::to_string(op.args.camera.value_or(0)) + ", " + std::to_string(op.isError) +
               ")";
      }
      std::string text = Title(entry, op.args);
      if (!entry.returnsNothing) text += " hal " + std::to_string(op.hal);
      if (op.kernel) text += " kernel " + std::to_string(*op.kernel);
      return text;
    }
    case Kind::kCore:
      return std::string("core ") + (op.number == 0 ? "removed" : "installed");
    case Kind::kSwitch:
      return "core switch " + std::to_string(op.number) + (op.flag ? " open" : " closed");
    case Kind::kHookArguments:
      return "core arguments " + op.name + ": [" + Names(op.texts) + "]";
    case Kind::kMessageCenter:
      return std::string("message centre ") + (op.number == 0   ? "removed"
                                               : op.number == 1 ? "installed"
                                                                : "without its send entry");
    case Kind::kSensorType:
      return "message centre: " + op.name + " has type \"" + op.text + "\"";
    case Kind::kMostProbed:
      return "message centre: most probed \"" + op.text + "\" is " + op.name + " (" + std::to_string(op.number) +
             " records)";
    case Kind::kProperty:
      return op.flag ? "property " + op.name + "=\"" + op.text + "\"" : "property " + op.name + " removed";
    case Kind::kKernelParameter:
      return op.number == 0 ? std::string("kernel parameter file removed")
                            : "kernel parameter \"" + op.text.substr(0, 60) + (op.text.size() > 60 ? "...\"" : "\"");
    case Kind::kOverrideSettings:
      return op.number == 0 ? std::string("override settings removed") : "override settings \"" + op.text + "\"";
    case Kind::kRestart:
      return "restart the camera service";
    case Kind::kReboot:
      return "reboot the phone";
  }
  return "";
}

namespace {

size_t IndexOf(const std::vector<std::string>& pool, const std::string& name) {
  const auto found = std::find(pool.begin(), pool.end(), name);
  return found == pool.end() ? 0 : static_cast<size_t>(found - pool.begin());
}

void AddChanges(const scenario::Changes& changes, std::vector<Op>* ops) {
  const auto add = [ops](Kind kind) -> Op& {
    Op& op = ops->emplace_back();
    op.kind = kind;
    return op;
  };
  if (changes.core) {
    add(Kind::kCore).number = changes.core->present ? 1 : 0;
    for (const auto& [kind, open] : changes.core->switches) {
      Op& op = add(Kind::kSwitch);
      op.number = std::clamp<int64_t>(kind, -1, 70);
      op.flag = open;
    }
    for (const auto& [hook, arguments] : changes.core->hookArguments) {
      Op& op = add(Kind::kHookArguments);
      op.name = kHookNames[IndexOf(kHookNames, hook)];
      op.texts.assign(arguments.begin(),
                      arguments.begin() + static_cast<std::ptrdiff_t>(std::min<size_t>(arguments.size(), 3)));
    }
  }
  if (changes.messageCenter) {
    add(Kind::kMessageCenter).number = !changes.messageCenter->present ? 0 : changes.messageCenter->withSend ? 1 : 2;
    for (const auto& [sensor, type] : changes.messageCenter->sensorTypes) {
      Op& op = add(Kind::kSensorType);
      op.name = kSensors[IndexOf(kSensors, sensor)];
      op.text = type;
    }
    for (const auto& [type, answer] : changes.messageCenter->mostProbed) {
      Op& op = add(Kind::kMostProbed);
      op.text = type;
      op.name = kSensors[IndexOf(kSensors, answer.sensor)];
      op.number = std::clamp<int64_t>(answer.recordCount, -1, 5);
    }
  }
  for (const auto& [key, value] : changes.properties) {
    if (std::find(kPropertyKeys.begin(), kPropertyKeys.end(), key) == kPropertyKeys.end()) continue;
    Op& op = add(Kind::kProperty);
    op.name = key;
    op.flag = value.has_value();
    op.text = value.value_or("");
  }
  if (changes.kernelParameter) {
    Op& op = add(Kind::kKernelParameter);
    op.number = changes.kernelParameter->present ? 5 : 0;
    op.text = changes.kernelParameter->text;
  }
  if (changes.overrideSettings) {
    Op& op = add(Kind::kOverrideSettings);
    op.number = *changes.overrideSettings ? 2 : 0;
    op.text = changes.overrideSettings->value_or("");
  }
}

}  // namespace

std::vector<Op> FromScenario(const scenario::Scenario& scenario) {
  std::vector<Op> ops;
  AddChanges(scenario.setup, &ops);
  ops.emplace_back().kind = Kind::kRestart;  // the scenario's process starts on its setup
  for (const scenario::Step& step : scenario.steps) {
    for (int repetition = 0; repetition < step.repeat && ops.size() < kMaxOps; ++repetition) {
      switch (step.kind) {
        case scenario::Step::Kind::kRestart:
          ops.emplace_back().kind = Kind::kRestart;
          break;
        case scenario::Step::Kind::kReboot:
          ops.emplace_back().kind = Kind::kReboot;
          break;
        case scenario::Step::Kind::kSet:
          AddChanges(step.changes, &ops);
          break;
        case scenario::Step::Kind::kCall: {
          Op& op = ops.emplace_back();
          op.entry = static_cast<size_t>(step.hook - Catalogue().data());
          op.args = step.args;
          const hal::Outcome outcome = step.hal.calls.empty() ? step.hal.after : step.hal.calls.front();
          op.hal = outcome.result;
          op.kernel = outcome.kernel;
          if (op.args.camera) op.args.camera = std::min(*op.args.camera, kMaxCamera);
          op.args.sensor = kSensors[IndexOf(kSensors, op.args.sensor)];
          op.args.eeprom = kEeproms[IndexOf(kEeproms, op.args.eeprom)];
          if (op.args.actuator) op.args.actuator = kActuators[IndexOf(kActuators, *op.args.actuator)];
          break;
        }
      }
    }
  }
  if (ops.size() > kMaxOps) ops.resize(kMaxOps);
  // Through the byte form, so that every value is one the fuzzer can read.
  const std::vector<uint8_t> bytes = Encode(ops);
  return Decode(bytes.data(), bytes.size());
}

std::string ToScenarioJson(const std::vector<Op>& ops, const std::string& name) {
  using Json = nlohmann::ordered_json;
  Json root;
  root["name"] = name;
  root["description"] = "A call sequence of the call-sequence fuzzer, as a scenario.";
  Json cameras = Json::array();
  for (uint32_t id = 0; id <= kMaxCamera; ++id) {
    cameras.push_back(
        {{"id", id}, {"slot", id}, {"sensors", kSensors}, {"eeproms", kEeproms}, {"actuators", kActuators}});
  }
  root["device"] = {{"cameras", cameras}};
  // The phone the fuzzer starts from: no core, no message centre, no files.
  root["core"] = {{"present", false}};
  root["messageCenter"] = {{"present", false}};
  root["kernelParameter"] = nullptr;
  bool corePresent = false, centrePresent = false, centreSend = true;
  Json steps = Json::array();
  for (const Op& op : ops) {
    Json step;
    switch (op.kind) {
      case Kind::kCall: {
        const CatalogueEntry& entry = Catalogue()[op.entry];
        if (entry.invoke == nullptr) {
          step = {{"set", Json::object()}, {"note", Describe(op) + ": not played by scenarios"}};
          break;
        }
        const CallArgs& a = op.args;
        step["call"] = entry.call;
        for (Arg arg : entry.args) {
          switch (arg) {
            case Arg::kCamera:
            case Arg::kBringUpCamera:
            case Arg::kSubmitCamera:
              step["camera"] = a.camera.value_or(0);
              break;
            case Arg::kCameraOrNull:
              step["camera"] = a.cameraAbsent ? Json(nullptr) : Json(a.camera.value_or(0));
              break;
            case Arg::kModuleCamera:
              break;
            case Arg::kSlot:
              step["slot"] = a.slot.value_or(0);
              break;
            case Arg::kSensor:
              step["sensor"] = a.sensor;
              break;
            case Arg::kEeprom:
              step["eeprom"] = a.eeprom;
              break;
            case Arg::kActuator:
              step["actuator"] = a.actuator ? Json(*a.actuator) : Json(nullptr);
              break;
            case Arg::kOpcode:
              step["opcode"] = a.opcode;
              break;
            case Arg::kSlaveAddress:
            case Arg::kSlaveAddress16:
              step["slaveAddress"] = a.slaveAddress;
              break;
            case Arg::kData:
              step["data"] = a.dataNull ? Json(nullptr) : Json{{"length", a.dataLength}, {"fill", a.fill}};
              break;
            case Arg::kSize:
              if (a.size) step["size"] = *a.size;
              break;
            case Arg::kTimestamps:
              step["timestamps"] = a.timestamps;
              break;
            case Arg::kSensorType:
              step["sensorType"] = a.sensorType;
              break;
            case Arg::kMessage:
              step["message"] =
                  a.messageNull ? Json(nullptr) : Json{{"type", a.messageType}, {"value", a.messageValue}};
              break;
            case Arg::kUserData:
              step["userData"] = !a.userDataNull;
              break;
            case Arg::kRecordControl:
              step["recordControl"] = a.recordControl ? Json(*a.recordControl) : Json(nullptr);
              break;
            case Arg::kTagRegistered:
              step["tagRegistered"] = a.tagRegistered;
              break;
            case Arg::kTagZero:
              if (a.tagZero) step["tagZero"] = *a.tagZero;
              break;
            case Arg::kKernel:
              step["kernel"] = op.kernel ? Json(*op.kernel) : Json(nullptr);
              break;
          }
        }
        if (!entry.returnsNothing) step["hal"] = op.hal;
        break;
      }
      case Kind::kCore:
        corePresent = op.number == 1;
        step["set"]["core"] = {{"present", corePresent}};
        break;
      case Kind::kSwitch:
        step["set"]["core"] = {{"present", corePresent}, {"switches", {{std::to_string(op.number), op.flag}}}};
        break;
      case Kind::kHookArguments:
        step["set"]["core"] = {{"present", corePresent}, {"hookArguments", {{op.name, op.texts}}}};
        break;
      case Kind::kMessageCenter:
        centrePresent = op.number != 0;
        centreSend = op.number != 2;
        step["set"]["messageCenter"] = {{"present", centrePresent}, {"send", centreSend}};
        break;
      case Kind::kSensorType:
        step["set"]["messageCenter"] = {
            {"present", centrePresent}, {"send", centreSend}, {"sensorTypes", {{op.name, op.text}}}};
        break;
      case Kind::kMostProbed:
        step["set"]["messageCenter"] = {{"present", centrePresent},
                                        {"send", centreSend},
                                        {"mostProbed", {{op.text, {{"sensor", op.name}, {"recordCount", op.number}}}}}};
        break;
      case Kind::kProperty:
        step["set"]["properties"] = {{op.name, op.flag ? Json(op.text) : Json(nullptr)}};
        break;
      case Kind::kKernelParameter:
        step["set"]["kernelParameter"] = op.number == 0 ? Json(nullptr) : Json(op.text);
        break;
      case Kind::kOverrideSettings:
        step["set"]["overrideSettings"] = op.number == 0 ? Json(nullptr) : Json(op.text);
        break;
      case Kind::kRestart:
        step["restart"] = true;
        break;
      case Kind::kReboot:
        step["reboot"] = true;
        break;
    }
    steps.push_back(std::move(step));
  }
  root["steps"] = std::move(steps);
  return root.dump(2) + "\n";
}

}  // namespace sim::sequence
