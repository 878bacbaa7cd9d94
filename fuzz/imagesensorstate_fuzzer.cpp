// ImageSensorStateHelper over arbitrary property text. Whatever the value
// held, an update leaves exactly the three groups P, I, C in the record
// format and changes only its own stage (or resets everything for a result
// other than "S"/"F"); a record read always has exactly the keys P, I, C.
//
// Input: byte 0 picks the stage, byte 1 the result, byte 2 the camera number;
// the rest is the property value found before the update.
#include "core/model/monitor/interface/imagesensorstate.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <regex>
#include <string>

#include "fuzz/fuzz_support.h"
#include "sim/platform/simdevice.h"
#include "sim/platform/simlog.h"
#include "sim/platform/simproperties.h"

namespace {

constexpr char kModSwitch[] = "persist.vendor.camera.cloud.remedium.modswitch";
constexpr int64_t kBootSeconds = 4242;
constexpr const char* kStages[] = {"P", "I", "C", "X", "", "PI"};
constexpr const char* kResults[] = {"S", "F", "-", "SS", "", "s"};

std::string Key(uint32_t camera) { return kImageSensorStatePropertyPrefix + std::to_string(camera); }

void CheckKeys(const ImageSensorStateSet& set, uint32_t camera) {
  FUZZ_CHECK(set.cameraId == camera && set.states.size() == 3);
  for (const char* letter : {"P", "I", "C"}) {
    const ImageSensorState& state = set.states.at(letter);  // throws, and so fails, when missing
    FUZZ_CHECK(state.result == "S" || state.result == "F" || state.result == "-");
    FUZZ_CHECK(state.timestamp >= 0);
  }
}

// Whether the value as the library reads it (a property holds at most 91
// characters, up to the first NUL) has a well-formed group for `stage`.
bool HasGroup(const std::string& key, const std::string& stage) {
  if (stage.size() != 1) return false;
  const std::string read = sim::GetProperty(key).value_or("");
  const std::string visible = read.substr(0, std::min(read.find('\0'), size_t{91}));
  const std::regex group("<" + stage + ":[SF-]:\\d+>", std::regex::ECMAScript);
  return std::regex_search(visible, group);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The module switch is read once per process: "sensorstate" on.
  sim::PresetProperty(kModSwitch, "64");
  sim::PinBootTime(kBootSeconds);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const std::string stage = kStages[data[0] % std::size(kStages)];
  const std::string result = kResults[data[1] % std::size(kResults)];
  const uint32_t camera = data[2] % 16;
  const std::string before(reinterpret_cast<const char*>(data) + 3, size - 3);

  sim::ResetProperties();
  sim::ClearLog();  // the simulated platform's records would grow run after run
  sim::ClearJournal();
  sim::PresetProperty(kModSwitch, "64");
  sim::PresetProperty(Key(camera), before);

  const ImageSensorStateSet old = ImageSensorStateHelper::GetImageSensorState(camera);
  CheckKeys(old, camera);
  const bool stageHadGroup = HasGroup(Key(camera), stage);

  ImageSensorStateHelper::UpdateImageSensorStateProperty(camera, stage, result);
  const std::string after = sim::GetProperty(Key(camera)).value_or("(unset)");
  static const std::regex kRecord("<P:[SF-]:\\d+><I:[SF-]:\\d+><C:[SF-]:\\d+>", std::regex::ECMAScript);
  FUZZ_CHECK(std::regex_match(after, kRecord));
  FUZZ_CHECK(sim::AllProperties().size() == 2);  // no other camera's record

  const ImageSensorStateSet now = ImageSensorStateHelper::GetImageSensorState(camera);
  CheckKeys(now, camera);

  if (result != "S" && result != "F") {
    FUZZ_CHECK(after == kImageSensorStateEmpty);
  } else {
    for (const auto& [letter, state] : now.states) {
      const ImageSensorState& was = old.states.at(letter);
      if (letter == stage && stageHadGroup) {
        FUZZ_CHECK(state.result == result && state.timestamp == kBootSeconds);
      } else {
        FUZZ_CHECK(state.result == was.result && state.timestamp == was.timestamp);
      }
    }
    // The normalised record is a fixed point of an update that records nothing.
    ImageSensorStateHelper::UpdateImageSensorStateProperty(camera, "X", result);
    FUZZ_CHECK(sim::GetProperty(Key(camera)).value_or("") == after);
  }
  return 0;
}
