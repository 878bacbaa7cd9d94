// `remedium-sim explain ...` on the command line.
#include <cstdio>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "explain/story.h"

namespace explain {

std::function<std::optional<int>()> AddCommand(CLI::App& app, CLI::App** command) {
  struct Given {
    std::vector<std::string> files;
    ExplainOptions options;
    std::string since, until;
  };
  const auto given = std::make_shared<Given>();
  CLI::App* explain = *command = app.add_subcommand(
      "explain",
      "Tell what the library decided, from a phone's logcat, bug report, getprop dump or kernel parameter text");
  explain->add_option("FILE", given->files, "Inputs, any mix; the format is read from the content")->required();
  explain->add_flag("--json", given->options.json, "The story as JSON");
  explain->add_flag("--jsonl", given->options.jsonl, "One decision a line (JSON Lines), as they are found")
      ->excludes("--json");
  explain->add_option("--trace", given->options.trace, "Also write the story as a Perfetto/Chrome JSON trace");
  explain->add_option("--camera", given->options.camera, "Only this camera id");
  explain->add_option("--pid", given->options.pid, "Only this camera process");
  explain->add_option("--since", given->since, "Only decisions at or after TIME, as the log writes it");
  explain->add_option("--until", given->until, "Only decisions at or before TIME, as the log writes it");
  explain->add_option("--kind", given->options.kinds, "Only decisions of this kind (repeatable)")
      ->check([](const std::string& kind) {
        std::string known;
        for (size_t i = 0; i < kEventKindCount; ++i) {
          if (kind == kEventKinds[i].name) return std::string();
          known += (i > 0 ? ", " : "") + std::string(kEventKinds[i].name);
        }
        return "unknown kind \"" + kind + "\"; one of: " + known;
      });
  return [=]() -> std::optional<int> {
    if (!*explain) return std::nullopt;
    for (auto [text, into] :
         {std::pair{&given->since, &given->options.since}, {&given->until, &given->options.until}}) {
      if (text->empty()) continue;
      if (!(*into = ParseFilterTime(*text))) {
        std::fprintf(stderr,
                     "remedium-sim explain: --since/--until \"%s\": not a time (\"11-23 05:15:21.338\", "
                     "\"2024-11-23 05:15:21\" or seconds)\n",
                     text->c_str());
        return 2;
      }
    }
    return RunExplain(given->files, given->options, std::cout, std::cerr);
  };
}

}  // namespace explain
