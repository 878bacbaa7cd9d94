#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "client/interface/remediumconfig.h"
#include "core/model/monitor/interface/imagesensorstate.h"
#include "hook/src/corearguments.h"
#include "hook/src/errorframeworkid.h"
#include "sim/replay/replay.h"

namespace sim::replay {
namespace {

namespace sc = sim::scenario;

// The properties the library reads or writes; the image sensor state's are named per slot.
const std::vector<std::string> kProperties = {kModuleSwitchProperty,
                                              "persist.vendor.camera.remedium.loglevel",
                                              CamX::kErrorFrameworkIdProperty,
                                              "persist.vendor.camera.enableEarlyPipelineActivate",
                                              "persist.vendor.camera.enableSATWideAlwaysOn",
                                              "persist.vendor.camera.isEarlysettingsEnable",
                                              "persist.vendor.camera.isSatFollowFingersOpt",
                                              "vendor.debug.camera.numPCRsBeforeStreamOn"};

bool KnownProperty(const std::string& name) {
  if (std::ranges::find(kProperties, name) != kProperties.end()) return true;
  const std::string prefix = kImageSensorStatePropertyPrefix;
  return name.starts_with(prefix) && name.size() > prefix.size() &&
         std::all_of(name.begin() + static_cast<std::ptrdiff_t>(prefix.size()), name.end(),
                     [](char c) { return c >= '0' && c <= '9'; });
}

std::string Join(const auto& items) {
  std::string text;
  for (const auto& item : items) text += (text.empty() ? "" : ", ") + std::string(item);
  return text;
}

std::vector<std::string> Split(const std::string& text) {
  std::vector<std::string> items;
  if (text.empty()) return items;
  std::stringstream stream(text);
  for (std::string item; std::getline(stream, item, ',');) items.push_back(item);
  if (text.back() == ',') items.emplace_back();
  return items;
}

// "NAME=VALUE" into its two parts; false for a text without a name before "=".
bool Pair(const std::string& text, std::string* name, std::string* value) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0) return false;
  *name = text.substr(0, equals);
  *value = text.substr(equals + 1);
  return true;
}

}  // namespace

bool ApplyOverrides(const Overrides& overrides, sc::Scenario* scenario, std::string* error) {
  std::string name, value;
  for (const std::string& text : overrides.properties) {
    if (!Pair(text, &name, &value)) {
      *error = "--set \"" + text + "\": expected PROPERTY=VALUE";
      return false;
    }
    if (!KnownProperty(name)) {
      *error = "--set: \"" + name + "\" is not a property the library reads or writes (" + Join(kProperties) + ", " +
               kImageSensorStatePropertyPrefix + "N)";
      return false;
    }
    scenario->setup.properties[name] = value;
  }
  for (const std::string& file : overrides.settingsFiles) {
    std::error_code ec;
    std::ifstream in(file, std::ios::binary);
    std::stringstream text;
    if (in && std::filesystem::is_regular_file(file, ec)) text << in.rdbuf();
    if (!in || !std::filesystem::is_regular_file(file, ec)) {
      *error = "--settings " + file + ": cannot read the override-settings file";
      return false;
    }
    scenario->setup.overrideSettings = text.str();
  }
  for (const std::string& text : overrides.coreArguments) {
    if (!Pair(text, &name, &value)) {
      *error = "--core-arg \"" + text + "\": expected NAME=VALUE,VALUE (an empty list removes the arguments)";
      return false;
    }
    if (std::ranges::find(CamX::coreargument::kAll, name) == std::end(CamX::coreargument::kAll)) {
      *error = "--core-arg: \"" + name + "\" is not an argument a hook asks the core for (" +
               Join(CamX::coreargument::kAll) + ")";
      return false;
    }
    sc::CoreSetup& core = scenario->setup.core ? *scenario->setup.core : scenario->setup.core.emplace();
    if (value.empty()) {
      core.hookArguments.erase(name);
    } else {
      core.hookArguments[name] = Split(value);
    }
  }
  for (const std::string& text : overrides.modules) {
    char* end = nullptr;
    const bool paired = Pair(text, &name, &value);
    const unsigned long slot = paired ? std::strtoul(name.c_str(), &end, 10) : 0;
    if (!paired || end == nullptr || *end != '\0' || value.empty()) {
      *error = "--module \"" + text + "\": expected SLOT=NAME,NAME (the module names of the camera in that slot)";
      return false;
    }
    const std::vector<std::string> modules = Split(value);
    bool found = false;
    for (sc::Camera& camera : scenario->cameras) {
      if (camera.slot != slot) continue;
      found = true;
      // The camera's steps name its modules by position in the list.
      for (sc::Step& step : scenario->steps) {
        if (step.kind != sc::Step::Kind::kCall || step.args.camera != camera.id) continue;
        const auto at = std::ranges::find(camera.sensors, step.args.sensor);
        if (at == camera.sensors.end()) continue;
        const size_t index = static_cast<size_t>(at - camera.sensors.begin());
        if (index < modules.size()) step.args.sensor = modules[index];
      }
      camera.sensors = modules;
    }
    if (!found) {
      std::vector<std::string> slots;
      for (const sc::Camera& camera : scenario->cameras) slots.push_back(std::to_string(camera.slot));
      *error = "--module: no camera is in slot " + name + " (the scenario's slots: " + Join(slots) + ")";
      return false;
    }
  }
  return true;
}

}  // namespace sim::replay
