// What ingest computes from explain's story of one bug report, apart from the
// reading and writing around it: a camera's flags and failure signature, the
// recorded state in words, the report's time from its file name.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "explain/story.h"

namespace fleet {

// The camera's flags as `cameras` holds them (fleet.h's kRates name them), and its signature: the
// slot's sensor attempts in order, one word each, repeats counted ("slot 0: imx582_rear kmd -19 >
// s5kgm2_rear kmd -110 x3 > s5kgm2_rear bypass"). Nothing of a phone's own (times, PIDs, attempt
// numbers) is in it, so the same failure pattern on two phones has the same signature.
struct CameraFacts {
  bool firstProbeFailed = false;
  bool bypassTaken = false;
  bool kernelRetry = false;
  bool forcedEeprom = false;
  bool hiddenInit = false;
  bool hiddenConfig = false;
  bool lost = false;
  bool incomplete = false;
  std::optional<std::string> signature;  // none without a sensor attempt
};
CameraFacts FactsOf(const explain::CameraStory& camera);

// The lines explain prints under "recorded state" for `camera` of the boot: its image sensor
// state and kernel table entry in words. Camera -1: the error framework id list.
struct RecordedLine {
  int camera;
  std::string line;
};
std::vector<RecordedLine> RecordedState(const explain::BootStory& boot);

// The time adb bugreport writes in the report's name ("bugreport-vela-AP3A.240905.015.A2-2024-11-23-05-16-02"):
// "2024-11-23 05:16:02", or nullopt when the name has none.
std::optional<std::string> TimeFromName(std::string_view name);

}  // namespace fleet
