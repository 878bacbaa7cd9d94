// The replay on the command line: `explain --scenario OUT`, `compare`, and
// the overrides of run, check and compare.
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "sim/replay/replay.h"

namespace sim::replay {

void AddOverrides(CLI::App& command, Overrides* overrides) {
  command.add_option("--set", overrides->properties, "PROPERTY=VALUE: a property preset (repeatable)");
  command.add_option("--settings", overrides->settingsFiles, "FILE: the override-settings file's text");
  command.add_option("--core-arg", overrides->coreArguments,
                     "NAME=VALUE,...: the core's arguments for a hook (empty: none; repeatable)");
  command.add_option("--module", overrides->modules,
                     "SLOT=NAME,...: the module names of the camera in that slot, in its steps too (repeatable)");
}

std::function<std::optional<int>()> AddCommands(CLI::App& app, CLI::App& explain) {
  struct Given {
    std::string scenario, a, b;
    bool json = false;
    Overrides overrides;
  };
  const auto given = std::make_shared<Given>();
  explain.add_option("--scenario", given->scenario,
                     "Write a scenario replaying the log to this file (assumptions on stderr)");
  CLI::App* compare =
      app.add_subcommand("compare", "Play two scenarios and show per camera where the library's decisions part");
  compare->add_option("A", given->a, "Scenario A (JSON)")->required();
  compare->add_option("B", given->b, "Scenario B (JSON)")->required();
  compare->add_flag("--json", given->json, "As JSON");
  AddOverrides(*compare, &given->overrides);
  compare->footer("Overrides apply to both. Exit status: 0 the decisions agree, 1 they differ, 2 bad input.");
  return [=, &explain]() -> std::optional<int> {
    if (*compare) return RunCompare(given->a, given->b, given->overrides, given->json, std::cout, std::cerr);
    if (explain && !given->scenario.empty()) {
      return RunReplay(explain.get_option("FILE")->as<std::vector<std::string>>(), given->scenario, std::cerr);
    }
    return std::nullopt;
  };
}

}  // namespace sim::replay
