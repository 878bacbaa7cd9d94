#include "core/model/monitor/interface/imagesensorstate.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <regex>

#include <cutils/properties.h>

#include "client/interface/remediumconfig.h"
#include "core/model/monitor/interface/imagesensorstatelogsites.h"

namespace {

// Larger than any property value; the formatted record is at most 75
// characters (three one-letter results and 19-digit times).
constexpr size_t kValueSize = 256;

bool ModuleOn() { return RemediumConfig::GetInstance().IsModuleSwitchOpened(kImageSensorStateModule); }

// "vendor.debug.camera.imagesensorstate.<camera number>", built without the
// heap: the name is longer than a string keeps inline.
struct PropertyName {
  explicit PropertyName(uint32_t cameraId) {
    std::snprintf(text, sizeof(text), "%s%u", kImageSensorStatePropertyPrefix, cameraId);
  }
  const char* c_str() const { return text; }
  char text[sizeof(kImageSensorStatePropertyPrefix) + 10] = {};
};

std::map<std::string, ImageSensorState> UnrecordedStates() {
  return {{"P", {"-", 0}}, {"I", {"-", 0}}, {"C", {"-", 0}}};
}

// Calls `onGroup` for each well-formed group of `value`, left to right; text
// between and around groups is ignored.
template <typename OnGroup>
void ForEachGroup(const std::string& value, OnGroup&& onGroup) {
  // Compiled once per process; matching with a const pattern is thread-safe.
  static const std::regex pattern(kImageSensorStatePattern, std::regex::ECMAScript);
  std::smatch match;
  auto from = value.cbegin();
  while (std::regex_search(from, value.cend(), match, pattern)) {
    if (match.size() < 4) break;
    onGroup(match);
    from = match[0].second;
  }
}

// Whole seconds since boot, suspend included.
int64_t BootSeconds() {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<int64_t>(now.tv_sec);
}

// atoll saturates on overflow (it is strtoll in the C library).
int64_t Seconds(const std::ssub_match& digits) { return std::atoll(digits.str().c_str()); }

}  // namespace

void ImageSensorStateHelper::UpdateImageSensorStateProperty(uint32_t cameraId, std::string stage, std::string result) {
  if (!ModuleOn()) return;

  const PropertyName key(cameraId);
  char value[kValueSize] = {};
  property_get(key.c_str(), value, kImageSensorStateEmpty);
  REMEDIUM_LOG(StateUpdateRead, static_cast<int>(cameraId), stage.c_str(), result.c_str(), value);

  // "P", "I", "C" in the record's order, unrecorded until a group says
  // otherwise (a fixed table: the record is rewritten on every update).
  struct Stage {
    char letter;
    ImageSensorState state;
  };
  std::array<Stage, 3> states = {{{'P', {"-", 0}}, {'I', {"-", 0}}, {'C', {"-", 0}}}};
  // Tested per group, before anything is copied: an update with any other
  // result text copies nothing and so resets the whole record.
  const bool resultValid = result.size() == 1 && (result[0] == 'S' || result[0] == 'F');
  ForEachGroup(value, [&](const std::smatch& match) {
    if (!resultValid) return;
    // The pattern's group 1 is one of the three letters.
    const char letter = *match[1].first;
    Stage& entry = *std::ranges::find(states, letter, &Stage::letter);
    if (match[1] == stage) {
      entry.state = {result, BootSeconds()};
    } else {
      entry.state = {match[2].str(), Seconds(match[3])};
    }
  });

  char updated[kValueSize] = {};
  std::snprintf(updated, sizeof(updated), kImageSensorStateFormat, states[0].state.result.c_str(),
                static_cast<long long>(states[0].state.timestamp), states[1].state.result.c_str(),
                static_cast<long long>(states[1].state.timestamp), states[2].state.result.c_str(),
                static_cast<long long>(states[2].state.timestamp));
  REMEDIUM_LOG(StateUpdateWrite, updated);
  property_set(key.c_str(), updated);  // OK: a lost write only loses this record
}

ImageSensorStateSet ImageSensorStateHelper::GetImageSensorState(uint32_t cameraId) {
  ImageSensorStateSet set{cameraId, UnrecordedStates()};
  if (!ModuleOn()) return set;

  const PropertyName key(cameraId);
  char value[kValueSize] = {};
  property_get(key.c_str(), value, kImageSensorStateEmpty);
  if (std::strcmp(value, kImageSensorStateEmpty) == 0) return set;
  REMEDIUM_LOG(StateGetValue, key.c_str(), value);

  ForEachGroup(value, [&](const std::smatch& match) {
    REMEDIUM_LOG(StateGetMatch, match[0].str().c_str(), match[1].str().c_str(), match[2].str().c_str(),
                 match[3].str().c_str());
    set.states[match[1].str()] = {match[2].str(), Seconds(match[3])};
  });
  return set;
}
