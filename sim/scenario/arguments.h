// The argument kinds of a HAL call in a scenario, each described once: the
// key a step gives it under, how it is read from and written to JSON, its
// byte encoding for the call-sequence fuzzer (with the values the fuzzer
// draws), and its part of the step's title. A new kind is one entry of the
// table in arguments.cpp; the catalogue's entries list the kinds each call
// takes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/scenario/node.h"
#include "sim/scenario/scenario.h"

namespace sim::scenario {

// The modules of the fuzzer's phone: small pools, so that probe histories and
// per-name records build up.
extern const std::vector<std::string> kSensors;
extern const std::vector<std::string> kEeproms;
extern const std::vector<std::string> kActuators;

// Reads or writes values as the bytes the call-sequence fuzzer reads
// (FuzzedDataProvider: numbers from the end, most significant byte first;
// strings from the front). One coding function serves both directions:
// reading sets each value, writing takes it (clamped into its range).
class Codec {
 public:
  virtual ~Codec() = default;
  // An offset in [0, range].
  virtual void Offset(uint64_t& offset, uint64_t range) = 0;
  virtual void Text(std::string& text, size_t max) = 0;
  virtual bool More() = 0;

  template <typename T>
  void Number(T& value, T low, T high) {
    value = std::clamp(value, low, high);
    uint64_t offset = static_cast<uint64_t>(value) - static_cast<uint64_t>(low);
    Offset(offset, static_cast<uint64_t>(high) - static_cast<uint64_t>(low));
    value = static_cast<T>(static_cast<uint64_t>(low) + offset);
  }
  void Bool(bool& value) {
    uint64_t byte = value ? 1 : 0;
    Offset(byte, 255);
    value = (byte & 1) != 0;
  }
  // One of `pool`; a name outside it is written as the first.
  void Pick(std::string& name, const std::vector<std::string>& pool);
  // One of `pool` or, as the last choice, any text of at most `max` bytes.
  void PickOrText(std::string& text, const std::vector<std::string>& pool, size_t max);
  // One of `pool` or, as the last choice, any number in [low, high].
  template <typename T>
  void PickOrNumber(T& value, const std::vector<T>& pool, T low, T high) {
    PickOr(value, pool, [&] { Number(value, low, high); });
  }
  // One of `pool`, or what `otherwise` codes as the last choice.
  template <typename T, typename Otherwise>
  void PickOr(T& value, const std::vector<T>& pool, Otherwise otherwise) {
    size_t index = static_cast<size_t>(std::find(pool.begin(), pool.end(), value) - pool.begin());
    Number(index, size_t{0}, pool.size());
    if (index < pool.size()) {
      value = pool[index];
    } else {
      otherwise();
    }
  }
  // A value that may be left out.
  template <typename T, typename Code>
  void Maybe(std::optional<T>& value, Code code) {
    bool has = value.has_value();
    Bool(has);
    T inner = value.value_or(T{});
    if (has) code(inner);
    value = has ? std::optional<T>(std::move(inner)) : std::nullopt;
  }
};

// A call step being read: the scenario around it, and what the argument
// kinds read before leave for the ones after (the camera names the default
// modules; "kernel" and "hal" build the per-call script together).
struct CallReading {
  const Scenario& scenario;
  const Node& call;
  Step& step;
  const Camera* camera = nullptr;
  std::optional<std::vector<std::optional<int64_t>>> kernels;
};

struct ArgKind {
  const char* key;
  const char* required;  // what a call without the key is told it needs; null: it may be left out
  bool camera;           // titled first ("camera 0, ...")
  void (*read)(CallReading& reading, const Node& value, bool has);
  void (*write)(const Step& step, Json& json);
  void (*code)(Codec& codec, Step& step);
  std::string (*title)(const Step& step);  // empty: no part
};
const ArgKind& KindOf(Arg arg);

// A call step's arguments, HAL script and repeat from its JSON object.
void ReadCall(CallReading& reading);
// A call step as JSON (without "note", "expect").
Json WriteCall(const Step& step);
// A call step's arguments and HAL outcome as bytes.
void CodeCall(Codec& codec, Step& step);

}  // namespace sim::scenario
