// The HAL calls a phone's log shows, read line by line from the library's log
// sites: per boot and camera process, each call with the facts its lines give
// (names, camera, results, the core's arguments, the message centre's
// answers, the kernel parameter's text). sim/replay/replay.cpp turns them
// into a scenario.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "explain/input.h"
#include "explain/story.h"

namespace sim::replay {

struct LogCall {
  size_t id = 0;              // unique over the whole log, in the order calls began
  std::string name;           // the scenario's call name ("SensorProbe")
  std::string where;          // "FILE:LINE" of its first line
  bool startsInside = false;  // the log (or a gap) begins inside it
  bool lone = false;          // made of a use of the missing core that no line of a hook follows
  int camera = -1;            // what its own lines name
  int contextCamera = -1;     // the camera its thread last named, for calls whose lines name none
  int slot = -1;
  std::string sensor;
  std::vector<std::string> arguments;  // the core's arguments its lines show
  bool pairOpen = false;               // an "arg:" line waiting for its name line
  // The framework as its lines show it.
  bool coreMissing = false, switchNull = false, mcMissing = false, mcNoSend = false;
  std::optional<std::pair<int64_t, int64_t>> settings;  // retry times, module number
  bool settingsFileMissing = false, settingsMissing = false;
  bool usage = false, count = false, frequent = false, never = false;
  std::string type, mostName;
  int64_t mostCount = 0;
  // The sensor probe's decisions.
  std::optional<bool> lastRetry;
  std::vector<bool> bypassVerdicts;  // before the probe
  bool probing = false;              // past the bypass check
  std::vector<std::string> reads;    // kernel tables read after each probe
  bool kernelMissing = false;
  bool outcome = false;
  int64_t result = 0, kernelResult = 0;    // the outcome line's CamX (or returned) and kernel results
  std::optional<std::string> kernelAfter;  // the kernel parameter's text its last line shows
  std::optional<std::string> initRead;     // the table LoadSensorInitConfigCmd read
  std::vector<bool> eepromVerdicts;
  bool skipped = false, changed = false;
  int64_t opcode = 0, address = -1;
  std::vector<int64_t> toggles;
  std::optional<std::string> actuator;
  std::vector<int64_t> samples;
  int chosen = -1;
  // The image sensor state properties the library read (false) or wrote (true) during it or after
  // it, before the next call began; its first `statesBefore` came before its first line.
  std::vector<std::tuple<bool, std::string, std::string>> states;
  size_t statesBefore = 0;
};

struct LogProcess {
  int pid = -1;
  std::string ending;         // how it ended, when the log says
  std::deque<LogCall> calls;  // a deque: the threads point into it while it grows
  int lowestLevel = 8;        // of the library's lines, as Android's priorities (2 verbose to 7 fatal)
};

struct LogBoot {
  bool previous = false;  // a bug report's LAST LOGCAT
  std::vector<LogProcess> processes;
};

struct LogCalls {
  std::vector<LogBoot> boots;
  std::map<std::string, std::string> properties;  // from a bug report or getprop dump
  std::optional<std::string> kernelText;          // the kernel parameter's text given as an input
  std::map<std::string, int> cameraOfSensor;      // as the log's lines name them
  std::map<int, int> slotOfCamera;
  // Story events that say what the log lacks, by the call they belong to (SIZE_MAX: none).
  std::vector<std::pair<size_t, std::string>> gaps;
  std::vector<std::string> readingNotes;
  uint64_t libraryLines = 0;
  bool stateRecorded = false;  // the image sensor state module's lines show it on
};

// Reads the inputs (in the order of their first log time) into calls and tells the story
// beside, whose gaps become the calls' notes. False with one line in `error`.
bool ReadLogCalls(const std::vector<std::string>& files, LogCalls* calls, explain::Story* story, std::string* error);

}  // namespace sim::replay
