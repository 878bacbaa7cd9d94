#include "sim/scenario/arguments.h"

#include <limits>

namespace sim::scenario {

const std::vector<std::string> kSensors = {"s5kgm2_rear", "ov16a1q_front", "imx582_rear",
                                           "s5k3m5_aux",  "gc02m1_macro",  "macro_ultra_wide_tele_depth_front_cam"};
const std::vector<std::string> kEeproms = {"s5kgm2_rear_gt24p64", "imx582_rear_otp", "ov16a1q_front_otp"};
const std::vector<std::string> kActuators = {"s5kgm2_rear_ak7377", "imx582_rear_dw9800"};

namespace {

constexpr int64_t kInt32Min = INT32_MIN, kInt32Max = INT32_MAX, kUint32Max = UINT32_MAX;
constexpr char kHalResult[] = "a HAL result (0 success, non-zero failure)";
// Cameras the fuzzer calls: the slot table's 16 and two past it.
constexpr uint32_t kMaxCamera = 17;

// The camera a step names: one of the device's, below `limit`.
const Camera& StepCamera(const Scenario& scenario, const Node& camera, uint32_t limit) {
  const auto id = static_cast<uint32_t>(camera.Integer(0, UINT16_MAX, "a camera id"));
  std::vector<std::string> ids;
  for (const Camera& known : scenario.cameras) {
    if (known.id == id && id < limit) return known;
    ids.push_back(std::to_string(known.id));
  }
  if (std::find(ids.begin(), ids.end(), std::to_string(id)) == ids.end()) {
    camera.Fail("camera " + std::to_string(id) + " is not on the device (device.cameras has " +
                (ids.empty() ? std::string("none") : Join(ids)) + ")");
  }
  camera.Fail("camera " + std::to_string(id) +
              " is outside the 16-entry slot table; the library stops the camera process there (bounds trap), "
              "which the simulator does not play");
}

// A module name: given (and, with a camera, one of the device's), or the camera's first.
std::string Named(const CallReading& r, const char* key, std::vector<std::string> Camera::* list, const char* what) {
  const std::vector<std::string> known = r.camera != nullptr ? r.camera->*list : std::vector<std::string>{};
  if (r.call.Has(key)) {
    const std::string name = r.call.At(key).String("a " + std::string(what) + " name");
    if (!known.empty() && std::find(known.begin(), known.end(), name) == known.end()) {
      r.call.At(key).Fail("\"" + name + "\" is not a " + what + " of camera " + std::to_string(r.camera->id) +
                          " (device lists " + Join(known) + ")");
    }
    return name;
  }
  if (!known.empty()) return known.front();
  r.call.Fail("this call needs \"" + std::string(key) + "\" (or a camera whose device entry lists " + what + "s)");
}

// "hal" or "kernel": an array gives one value per call (none beyond it), a single value every call.
template <typename T, typename Read>
std::optional<std::vector<T>> PerCall(const Node& node, T* every, const std::string& what, Read read) {
  if (!node.value().is_array()) {
    *every = read(node);
    return std::nullopt;
  }
  std::vector<T> values;
  for (const Node& item : node.Items("")) values.push_back(read(item));
  if (values.empty()) node.Fail("expected at least one " + what);
  return values;
}

uint32_t U32(const Node& value, const char* what) { return static_cast<uint32_t>(value.Integer(0, kUint32Max, what)); }
uint8_t Byte(const Node& value) { return static_cast<uint8_t>(value.Integer(0, 255, "a byte value")); }
Json OrNull(const auto& value) { return value ? Json(*value) : Json(nullptr); }

void ReadCamera(CallReading& r, const Node& value, uint32_t limit) {
  r.step.args.camera = (r.camera = &StepCamera(r.scenario, value, limit))->id;
}
void WriteCamera(const Step& s, Json& j) { j["camera"] = s.args.camera.value_or(0); }
void CodeCamera(Codec& c, Step& s, uint32_t max) {
  uint32_t id = s.args.camera.value_or(0);
  c.Number(id, uint32_t{0}, max);
  s.args.camera = id;
}
std::string TitleCamera(const Step& s) {
  return s.args.cameraAbsent ? "no camera id" : "camera " + std::to_string(s.args.camera.value_or(0));
}
constexpr uint32_t kAnyCamera = UINT16_MAX + 1u;
// Opcodes 2 (init) and 4 (config) index the library's 16-entry slot table.
bool SubmitIndexesSlots(const CallArgs& a) { return a.opcode == 2 || a.opcode == 4; }

// Slave addresses the library compares with: the two it switches between, and one it leaves.
const std::vector<uint32_t> kSlaveAddresses = {0x18, 0x66, 0x20, 0};
// CSL frame values a core argument names (see the catalogue's CSLMessageHandler shapes).
const std::vector<uint64_t> kMessageValues = {0, 1, 42, 4294967338u};

// In the order of Arg.
const ArgKind kKinds[] = {
    {"camera", "a \"camera\"", true, [](CallReading& r, const Node& v, bool) { ReadCamera(r, v, kAnyCamera); },
     WriteCamera, [](Codec& c, Step& s) { CodeCamera(c, s, kMaxCamera); }, TitleCamera},
    {"camera", "a \"camera\" (null: the HAL object has no camera id)", true,
     [](CallReading& r, const Node& v, bool) {
       if (!(r.step.args.cameraAbsent = v.IsNull())) ReadCamera(r, v, kAnyCamera);
     },
     [](const Step& s, Json& j) { j["camera"] = s.args.cameraAbsent ? Json(nullptr) : Json(*s.args.camera); },
     [](Codec& c, Step& s) {
       c.Bool(s.args.cameraAbsent);
       if (s.args.cameraAbsent) {
         s.args.camera.reset();
       } else {
         CodeCamera(c, s, kMaxCamera);
       }
     },
     TitleCamera},
    // The library stops the process beyond its 16-entry slot table: such cameras are not played.
    {"camera", "a \"camera\"", true, [](CallReading& r, const Node& v, bool) { ReadCamera(r, v, 16); }, WriteCamera,
     [](Codec& c, Step& s) { CodeCamera(c, s, 15); }, TitleCamera},
    {"camera", "a \"camera\"", true,
     [](CallReading& r, const Node& v, bool) { ReadCamera(r, v, SubmitIndexesSlots(r.step.args) ? 16 : kAnyCamera); },
     WriteCamera, [](Codec& c, Step& s) { CodeCamera(c, s, SubmitIndexesSlots(s.args) ? 15 : kMaxCamera); },
     TitleCamera},
    // Names the default module only; not passed on, so not written or coded.
    {"camera", nullptr, false,
     [](CallReading& r, const Node& v, bool has) {
       if (has) r.camera = &StepCamera(r.scenario, v, kAnyCamera);
     },
     [](const Step&, Json&) {}, [](Codec&, Step&) {}, [](const Step&) { return std::string(); }},
    {"slot", nullptr, false,
     [](CallReading& r, const Node& v, bool has) { r.step.args.slot = has ? U32(v, "a slot id") : r.camera->slot; },
     [](const Step& s, Json& j) { j["slot"] = s.args.slot.value_or(0); },
     [](Codec& c, Step& s) {
       uint32_t slot = s.args.slot.value_or(0);
       c.Number(slot, uint32_t{0}, kMaxCamera + 2);
       s.args.slot = slot;
     },
     [](const Step& s) { return "slot " + std::to_string(s.args.slot.value_or(0)); }},
    {"sensor", nullptr, false,
     [](CallReading& r, const Node&, bool) { r.step.args.sensor = Named(r, "sensor", &Camera::sensors, "sensor"); },
     [](const Step& s, Json& j) { j["sensor"] = s.args.sensor; },
     [](Codec& c, Step& s) { c.Pick(s.args.sensor, kSensors); }, [](const Step& s) { return s.args.sensor; }},
    {"eeprom", nullptr, false,
     [](CallReading& r, const Node&, bool) { r.step.args.eeprom = Named(r, "eeprom", &Camera::eeproms, "EEPROM"); },
     [](const Step& s, Json& j) { j["eeprom"] = s.args.eeprom; },
     [](Codec& c, Step& s) { c.Pick(s.args.eeprom, kEeproms); }, [](const Step& s) { return s.args.eeprom; }},
    {"actuator", nullptr, false,
     [](CallReading& r, const Node& v, bool has) {
       if (!has || !v.IsNull()) r.step.args.actuator = Named(r, "actuator", &Camera::actuators, "actuator");
     },
     [](const Step& s, Json& j) { j["actuator"] = OrNull(s.args.actuator); },
     [](Codec& c, Step& s) { c.Maybe(s.args.actuator, [&c](std::string& name) { c.Pick(name, kActuators); }); },
     [](const Step& s) { return s.args.actuator.value_or("no name"); }},
    {"opcode", "an \"opcode\" (2 init, 4 config)", false,
     [](CallReading& r, const Node& v, bool) { r.step.args.opcode = U32(v, "a packet opcode"); },
     [](const Step& s, Json& j) { j["opcode"] = s.args.opcode; },
     [](Codec& c, Step& s) { c.Number(s.args.opcode, uint32_t{0}, uint32_t{5}); },
     [](const Step& s) { return "opcode " + std::to_string(s.args.opcode); }},
    {"slaveAddress", "a \"slaveAddress\" (such as \"0x18\")", false,
     [](CallReading& r, const Node& v, bool) { r.step.args.slaveAddress = U32(v, "an I2C slave address"); },
     [](const Step& s, Json& j) { j["slaveAddress"] = s.args.slaveAddress; },
     [](Codec& c, Step& s) { c.PickOrNumber(s.args.slaveAddress, kSlaveAddresses, uint32_t{0}, uint32_t{UINT32_MAX}); },
     [](const Step& s) { return "slave " + Hex(s.args.slaveAddress); }},
    {"slaveAddress", "a \"slaveAddress\" (such as \"0x18\")", false,
     [](CallReading& r, const Node& v, bool) {
       r.step.args.slaveAddress = static_cast<uint32_t>(v.Integer(0, UINT16_MAX, "a 16-bit slave address"));
     },
     [](const Step& s, Json& j) { j["slaveAddress"] = s.args.slaveAddress; },
     [](Codec& c, Step& s) { c.PickOrNumber(s.args.slaveAddress, kSlaveAddresses, uint32_t{0}, uint32_t{0xFFFF}); },
     [](const Step& s) { return "slave " + Hex(s.args.slaveAddress); }},
    {"data", nullptr, false,
     [](CallReading& r, const Node& v, bool has) {
       CallArgs& a = r.step.args;
       if (!has || (a.dataNull = v.IsNull())) return;
       v.OnlyKeys({"length", "fill"}, "\"data\" (the EEPROM bytes handed over)");
       if (v.Has("length")) {
         a.dataLength = static_cast<uint32_t>(
             v.At("length").Integer(1024, 65536, "a length in bytes (the HAL reads at least 1024)"));
       }
       if (v.Has("fill")) a.fill = Byte(v.At("fill"));
     },
     [](const Step& s, Json& j) {
       j["data"] = s.args.dataNull ? Json(nullptr) : Json{{"length", s.args.dataLength}, {"fill", s.args.fill}};
     },
     [](Codec& c, Step& s) {
       c.Bool(s.args.dataNull);
       if (s.args.dataNull) return;
       c.Number(s.args.dataLength, uint32_t{1024}, uint32_t{1100});
       c.Number(s.args.fill, uint8_t{0}, uint8_t{255});
     },
     [](const Step& s) {
       return s.args.dataNull ? std::string("no data") : std::to_string(s.args.dataLength) + " bytes";
     }},
    {"size", nullptr, false,
     [](CallReading& r, const Node& v, bool has) {
       if (has) r.step.args.size = static_cast<int32_t>(v.Integer(kInt32Min, kInt32Max, "a size"));
     },
     [](const Step& s, Json& j) {
       if (s.args.size) j["size"] = *s.args.size;
     },
     [](Codec& c, Step& s) {
       c.Maybe(s.args.size, [&c](int32_t& size) { c.Number(size, int32_t{-2}, int32_t{1200}); });
     },
     [](const Step&) { return std::string(); }},
    {"timestamps", "\"timestamps\" (nanoseconds, one per sample)", false,
     [](CallReading& r, const Node& v, bool) {
       r.step.args.timestamps = v.Numbers("an array of timestamps in nanoseconds", "a timestamp in nanoseconds");
       if (r.step.args.timestamps.size() > 4096) v.Fail("at most 4096 samples per batch");
     },
     [](const Step& s, Json& j) { j["timestamps"] = s.args.timestamps; },
     [](Codec& c, Step& s) {
       size_t count = s.args.timestamps.size();
       c.Number(count, size_t{0}, size_t{8});
       s.args.timestamps.resize(count);
       for (int64_t& stamp : s.args.timestamps) {
         c.Number(stamp, std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max());
       }
     },
     [](const Step& s) {
       const size_t n = s.args.timestamps.size();
       return std::to_string(n) + (n == 1 ? " sample" : " samples") + ", type " + std::to_string(s.args.sensorType);
     }},
    {"sensorType", nullptr, false,
     [](CallReading& r, const Node& v, bool has) {
       if (has) r.step.args.sensorType = static_cast<int32_t>(v.Integer(kInt32Min, kInt32Max, "an NCSSensorType"));
     },
     [](const Step& s, Json& j) { j["sensorType"] = s.args.sensorType; },
     [](Codec& c, Step& s) { c.Number(s.args.sensorType, int32_t{-1}, int32_t{4}); },
     [](const Step&) { return std::string(); }},
    {"message", "a \"message\" ({\"type\", \"value\"} or null)", false,
     [](CallReading& r, const Node& v, bool) {
       CallArgs& a = r.step.args;
       if ((a.messageNull = v.IsNull())) return;
       v.OnlyKeys({"type", "value"}, "\"message\"");
       if (v.Has("type")) a.messageType = U32(v.At("type"), "a message kind");
       if (v.Has("value")) a.messageValue = v.At("value").Unsigned64("a 64-bit value");
     },
     [](const Step& s, Json& j) {
       j["message"] =
           s.args.messageNull ? Json(nullptr) : Json{{"type", s.args.messageType}, {"value", s.args.messageValue}};
     },
     [](Codec& c, Step& s) {
       c.Bool(s.args.messageNull);
       if (s.args.messageNull) return;
       c.Number(s.args.messageType, uint32_t{0}, uint32_t{4});
       c.PickOrNumber(s.args.messageValue, kMessageValues, uint64_t{0}, std::numeric_limits<uint64_t>::max());
     },
     [](const Step& s) {
       return s.args.messageNull
                  ? std::string("no message")
                  : "kind " + std::to_string(s.args.messageType) + ", value " + std::to_string(s.args.messageValue);
     }},
    {"userData", nullptr, false,
     [](CallReading& r, const Node& v, bool has) { r.step.args.userDataNull = has && !v.Bool(); },
     [](const Step& s, Json& j) { j["userData"] = !s.args.userDataNull; },
     [](Codec& c, Step& s) { c.Bool(s.args.userDataNull); },
     [](const Step& s) { return s.args.userDataNull ? std::string("no user data") : std::string(); }},
    {"recordControl", nullptr, false,
     [](CallReading& r, const Node& v, bool has) {
       if (has && !v.IsNull()) r.step.args.recordControl = Byte(v);
     },
     [](const Step& s, Json& j) { j["recordControl"] = OrNull(s.args.recordControl); },
     [](Codec& c, Step& s) {
       c.Maybe(s.args.recordControl, [&c](uint8_t& byte) { c.Number(byte, uint8_t{0}, uint8_t{255}); });
     },
     [](const Step& s) {
       return s.args.recordControl ? "recordControl " + std::to_string(*s.args.recordControl)
                                   : std::string("no recordControl");
     }},
    {"tagRegistered", nullptr, false,
     [](CallReading& r, const Node& v, bool has) { r.step.args.tagRegistered = !has || v.Bool(); },
     [](const Step& s, Json& j) { j["tagRegistered"] = s.args.tagRegistered; },
     [](Codec& c, Step& s) { c.Bool(s.args.tagRegistered); },
     [](const Step& s) { return s.args.tagRegistered ? std::string() : std::string("tag not registered"); }},
    {"tagZero", nullptr, false,
     [](CallReading& r, const Node& v, bool has) {
       if (has) r.step.args.tagZero = Byte(v);
     },
     [](const Step& s, Json& j) {
       if (s.args.tagZero) j["tagZero"] = *s.args.tagZero;
     },
     [](Codec& c, Step& s) {
       c.Maybe(s.args.tagZero, [&c](uint8_t& byte) { c.Number(byte, uint8_t{0}, uint8_t{255}); });
     },
     [](const Step& s) { return s.args.tagZero ? "tag 0 = " + std::to_string(*s.args.tagZero) : std::string(); }},
    // SensorProbe's kernel result, per call like "hal".
    {"kernel", nullptr, false,
     [](CallReading& r, const Node& v, bool has) {
       if (!has) return;
       r.kernels = PerCall(v, &r.step.hal.after.kernel, "kernel result", [](const Node& item) {
         return item.IsNull() ? std::nullopt
                              : std::optional(item.Any64("a kernel probe result (kmd; 0 success) or null (none)"));
       });
     },
     [](const Step& s, Json& j) {
       if (s.hal.calls.empty()) {
         j["kernel"] = OrNull(s.hal.after.kernel);
         return;
       }
       j["kernel"] = Json::array();
       for (const hal::Outcome& call : s.hal.calls) j["kernel"].push_back(OrNull(call.kernel));
     },
     [](Codec& c, Step& s) {
       c.Maybe(s.hal.after.kernel, [&c](int64_t& kernel) { c.Number(kernel, int64_t{-3}, int64_t{3}); });
     },
     [](const Step&) { return std::string(); }},
    // SetErrorFrameworkId's second parameter.
    {"isError", "an \"isError\" (the value handed to the library, 1: in error)", false,
     [](CallReading& r, const Node& v, bool) {
       r.step.args.isError = static_cast<int32_t>(v.Integer(kInt32Min, kInt32Max, "a number"));
     },
     [](const Step& s, Json& j) { j["isError"] = s.args.isError; },
     [](Codec& c, Step& s) { c.Number(s.args.isError, int32_t{-1}, int32_t{2}); },
     [](const Step& s) { return "isError " + std::to_string(s.args.isError); }},
};
static_assert(std::size(kKinds) == static_cast<size_t>(Arg::kIsError) + 1, "one kind per Arg, in its order");

}  // namespace

void Codec::Pick(std::string& name, const std::vector<std::string>& pool) {
  const auto found = std::find(pool.begin(), pool.end(), name);
  size_t index = found == pool.end() ? 0 : static_cast<size_t>(found - pool.begin());
  Number(index, size_t{0}, pool.size() - 1);
  name = pool[index];
}

void Codec::PickOrText(std::string& text, const std::vector<std::string>& pool, size_t max) {
  PickOr(text, pool, [&] { Text(text, max); });
}

const ArgKind& KindOf(Arg arg) { return kKinds[static_cast<size_t>(arg)]; }

std::string Title(const Step& step) {
  if (step.kind != Step::Kind::kCall) return step.kind == Step::Kind::kSet ? "set" : "";
  std::string inside;
  for (const bool cameras : {true, false}) {
    for (Arg arg : step.hook->args) {
      const ArgKind& kind = KindOf(arg);
      const std::string part = kind.camera == cameras ? kind.title(step) : "";
      if (!part.empty()) inside += (inside.empty() ? "" : ", ") + part;
    }
  }
  return std::string(step.hook->call) + "(" + inside + ")";
}

void ReadCall(CallReading& r) {
  const Node& node = r.call;
  Step& step = r.step;
  const std::string function = step.hook->call;
  const std::string call = Article(function) + function + " call";
  std::vector<std::string> keys = {"call", "note", "expect", "repeat", "hal"};
  for (Arg arg : step.hook->args) keys.push_back(KindOf(arg).key);
  node.OnlyKeys(keys, call);
  for (Arg arg : step.hook->args) {
    const ArgKind& kind = KindOf(arg);
    const bool has = node.Has(kind.key);
    if (!has && kind.required != nullptr) node.Fail(call + " needs " + kind.required);
    kind.read(r, has ? node.At(kind.key) : node, has);
  }
  std::optional<std::vector<CamxResult>> results;
  if (node.Has("hal")) {
    if (step.hook->returnsNothing) node.At("hal").Fail(function + " returns nothing; leave \"hal\" out");
    results = PerCall(node.At("hal"), &step.hal.after.result, "HAL result", [](const Node& item) {
      return static_cast<CamxResult>(item.Integer(kInt32Min, kInt32Max, kHalResult));
    });
  }
  const auto& kernels = r.kernels;
  for (size_t i = 0; i < std::max(results ? results->size() : 0, kernels ? kernels->size() : 0); ++i) {
    step.hal.calls.emplace_back(results ? (i < results->size() ? (*results)[i] : 0) : step.hal.after.result,
                                kernels ? (i < kernels->size() ? (*kernels)[i] : std::nullopt) : step.hal.after.kernel);
  }
  if (node.Has("repeat")) step.repeat = static_cast<int>(node.At("repeat").Integer(1, kMaxRepeat, "a repeat count"));
}

Json WriteCall(const Step& step) {
  Json json = {{"call", step.hook->call}};
  for (Arg arg : step.hook->args) KindOf(arg).write(step, json);
  if (!step.hook->returnsNothing && step.hal.calls.empty()) json["hal"] = step.hal.after.result;
  if (!step.hook->returnsNothing && !step.hal.calls.empty()) {
    json["hal"] = Json::array();
    for (const hal::Outcome& outcome : step.hal.calls) json["hal"].push_back(outcome.result);
  }
  if (step.repeat != 1) json["repeat"] = step.repeat;
  return json;
}

void CodeCall(Codec& codec, Step& step) {
  for (Arg arg : step.hook->args) KindOf(arg).code(codec, step);
  if (!step.hook->returnsNothing) codec.Number(step.hal.after.result, CamxResult{-1}, CamxResult{6});
}

}  // namespace sim::scenario
