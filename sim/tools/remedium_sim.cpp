// remedium-sim: runs the real hook library on a simulated phone.
//
//   remedium-sim                      plays the bundled default scenario
//   remedium-sim run FILE...          plays scenario files and shows what the library did
//   remedium-sim check FILE...        plays them and compares with their expectations
//   remedium-sim hooks                lists the proxies the library exports
//   remedium-sim decode TEXT...       explains a state property, error list or kernel parameter
//   remedium-sim explain FILE...      tells what the library decided, from a phone's logs and properties
//   remedium-sim compare A B          plays two scenarios and shows where their decisions part
//   remedium-sim fleet ...            many bug reports in one database: ingest, summary, compare, report, export, merge
//
// Exit status: 0 done, 1 an expectation not met (check), an invariant broken (run --check-invariants) or a
// proxy missing (hooks), 2 a problem to fix first (a malformed scenario, a missing library,
// a wrong command line).
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "explain/story.h"
#include "sim/fleet/fleet.h"
#include "sim/harness/harness.h"
#include "sim/invariants/invariants.h"
#include "sim/records/records.h"
#include "sim/replay/replay.h"
#include "sim/report/report.h"
#include "sim/scenario/scenario.h"

namespace {

namespace sc = sim::scenario;
namespace report = sim::report;
namespace records = sim::records;

constexpr int kExitMismatch = 1;
constexpr int kExitError = 2;

// The progress line for long runs, on stderr, rewritten in place at most every 100 ms.
struct Progress {
  bool enabled = false;
  std::string label;  // "[1/3] file.json"
  bool shown = false;
  std::chrono::steady_clock::time_point last{};

  void Update(size_t done, size_t total) {
    const auto now = std::chrono::steady_clock::now();
    if (!enabled || (done != total && now - last < std::chrono::milliseconds(100))) return;
    last = now;
    std::fprintf(stderr, "\r  %s: call %zu of %zu (%zu%%)   ", label.c_str(), done, total,
                 total ? done * 100 / total : 100);
    shown = true;
  }
  void Clear() {
    if (shown) std::fprintf(stderr, "\r%*s\r", 100, "");
    shown = false;
  }
};

struct RunOptions {
  bool check = false, logcat = false, verbose = false, quiet = false, invariants = false;
  std::string jsonPath, progress = "auto";
  sim::replay::Overrides overrides;
};

int Play(const std::vector<std::string>& files, const RunOptions& options) {
  // Every file is validated before the first plays, then each is read again
  // and played on its own, so memory holds one scenario and one step's records.
  size_t calls = 0;
  bool valid = true;
  for (const std::string& file : files) {
    sc::LoadError error;
    std::optional<sc::Scenario> scenario = sc::LoadScenarioFile(file, &error);
    if (!scenario) std::fprintf(stderr, "remedium-sim: %s\n", error.ToString().c_str());
    if (std::string what; scenario && !sim::replay::ApplyOverrides(options.overrides, &*scenario, &what)) {
      std::fprintf(stderr, "remedium-sim: %s\n", what.c_str());
      return kExitError;
    }
    valid = valid && scenario;
    calls += scenario ? scenario->callCount : 0;
  }
  if (!valid) return kExitError;
  const std::string jsonPath = options.jsonPath.empty() ? "" : std::filesystem::absolute(options.jsonPath).string();
  Progress progress;
  progress.enabled = options.progress == "on" ||
                     (options.progress == "auto" && isatty(STDERR_FILENO) && (calls > 200 || files.size() > 3));
  const bool timeline = !options.check && !options.quiet;
  std::ofstream json;  // the report as one JSON document, each scenario's written when it ends
  if (!jsonPath.empty()) json.open(jsonPath, std::ios::trunc);
  if (json.is_open()) {
    json << "{\n  \"tool\": \"remedium-sim\",\n  \"command\": \"" << (options.check ? "check" : "run")
         << "\",\n  \"scenarios\": [";
  }
  int status = 0;
  size_t passed = 0, reported = 0;
  for (size_t i = 0; i < files.size(); ++i) {
    sc::LoadError error;
    std::optional<sc::Scenario> loaded = sc::LoadScenarioFile(files[i], &error);
    if (std::string what; loaded && !sim::replay::ApplyOverrides(options.overrides, &*loaded, &what)) loaded.reset();
    if (!loaded) {  // changed since it was validated
      std::fprintf(stderr, "remedium-sim: %s\n", error.ToString().c_str());
      status = kExitError;
      continue;
    }
    const sc::Scenario& scenario = *loaded;
    progress.label = "[" + std::to_string(i + 1) + "/" + std::to_string(files.size()) + "] " + scenario.file;
    if (timeline) std::cout << report::FormatHeader(scenario) << std::flush;
    // Each step is shown, checked and reported as it is played, then dropped.
    report::CheckResult check;
    report::JsonReport jsonReport;
    sc::PlayOptions play;
    play.keepOutcomes = false;
    play.progress = [&progress](size_t done, size_t total) { progress.Update(done, total); };
    play.stepDone = [&](const sc::Scenario& played, const sc::StepOutcome& outcome) {
      if (timeline) progress.Clear();
      if (timeline) std::cout << report::FormatStep(played, outcome, {options.verbose, options.logcat}) << std::flush;
      report::CheckStep(played, outcome, &check);
      if (json.is_open()) jsonReport.Add(played, outcome);
    };
    bool violated = false;
    const auto invariants =
        sim::invariants::Make({[&](const std::string& message) {
                                 std::fprintf(stderr, "remedium-sim: %s: %s\n", scenario.file.c_str(), message.c_str());
                                 violated = true;
                               },
                               std::nullopt});
    if (options.invariants) play.observers.push_back(invariants.get());
    const sc::RunResult run = sc::Play(scenario, play);
    if (violated && status == 0) status = kExitMismatch;
    progress.Clear();
    report::CheckEnd(scenario, run, &check);
    if (json.is_open()) jsonReport.Write(scenario, run, check, json << (reported++ ? ",\n    " : "\n    "));
    if (!run.error.empty()) {
      std::fprintf(stderr, "remedium-sim: %s: %s\n", scenario.file.c_str(), run.error.c_str());
      status = kExitError;
    }
    if (timeline) std::cout << report::FormatSummary(scenario, run, check) << "\n";
    if (options.check && run.error.empty() && check.ok()) {
      ++passed;
      if (!options.quiet) std::cout << "PASS " << scenario.file << " (" << check.checked << " expectations)\n";
    } else if (options.check && run.error.empty()) {
      std::cout << "FAIL " << scenario.file << ": " << check.failed << " of " << check.checked
                << " expectations not met\n";
      check.text.CopyTo(std::cout);
      if (status == 0) status = kExitMismatch;
    }
    if (options.check && run.error.empty() && check.checked == 0) std::cout << "     (this file has no expectations)\n";
    std::cout << std::flush;
  }
  if (options.check && files.size() > 1) std::cout << passed << " of " << files.size() << " scenario(s) passed\n";
  if (jsonPath.empty()) return status;
  json << (reported ? "\n  ]\n}\n" : "]\n}\n");
  json.close();
  if (!json) std::fprintf(stderr, "remedium-sim: cannot write the report to %s\n", jsonPath.c_str());
  return json ? status : kExitError;
}

}  // namespace

int main(int argc, char** argv) {
  // CLI11 gives what follows "--" to the top level, not to the subcommand, so
  // decode takes its texts after "--" (those beginning with "-") itself.
  std::vector<std::string> decodeTexts;
  for (int i = 2; argc > 1 && std::string(argv[1]) == "decode" && i < argc; ++i) {
    if (std::string(argv[i]) != "--") continue;
    decodeTexts.assign(argv + i + 1, argv + argc);
    argc = i;
  }
  CLI::App app{
      "Runs the camera hook library com.velora.remedium.hook.camx.so on a simulated phone.\n"
      "Without a command, plays the bundled default scenario.",
      "remedium-sim"};
  app.require_subcommand(0, 1);

  RunOptions runOptions, checkOptions;
  checkOptions.check = true;
  std::vector<std::string> runFiles, checkFiles;
  // The files and options run and check share.
  const auto playing = [&app](const char* name, const char* what, std::vector<std::string>* files, RunOptions* options,
                              const char* filesHelp, const char* quietHelp) {
    CLI::App* command = app.add_subcommand(name, what);
    command->add_option("FILE", *files, filesHelp)->required();
    command->add_option("--json", options->jsonPath, "Write a machine-readable report to this file");
    command->add_flag("-q,--quiet", options->quiet, quietHelp);
    command->add_option("--progress", options->progress, "Progress line on stderr: auto, on or off")
        ->check(CLI::IsMember({"auto", "on", "off"}));
    sim::replay::AddOverrides(*command, &options->overrides);
    return command;
  };
  CLI::App* run =
      playing("run", "Play scenario files and show what the library did, step by step", &runFiles, &runOptions,
              "Scenario files (JSON; see sim/scenarios/README.md)", "Print no timeline (with --json)");
  run->add_flag("--logcat", runOptions.logcat, "Print the library's log lines in logcat's format");
  run->add_flag("--check-invariants", runOptions.invariants,
                "Check after every step what the library must never do (as the call-sequence fuzzer does); exit 1 "
                "on a violation");
  run->add_flag("-v,--verbose", runOptions.verbose,
                "Show every log line in the timeline, not only warnings and errors");
  CLI::App* check = playing("check", "Play scenario files and compare with the expectations in each", &checkFiles,
                            &checkOptions, "Scenario files (JSON)", "Print only failures");

  std::string libraryPath = sim::HookLibraryPath();
  CLI::App* hooks = app.add_subcommand("hooks", "List the proxies the hook library exports, and any missing");
  hooks->add_option("--library", libraryPath, "The hook library to inspect")->capture_default_str();

  std::string decodeAs = "auto";
  CLI::App* decode = app.add_subcommand(
      "decode",
      "Explain an image sensor state (<P:S:12><I:S:15><C:-:0>), an error framework id list (2,3) or a "
      "kernel parameter text (64 numbers)");
  // The texts are taken as they come: CLI11 would split getprop's "[name]: [value]" as a list.
  decode->allow_extras();
  decode->footer(
      "TEXT...: values, name=value, or getprop's [name]: [value]; - reads them from stdin, one per line; put -- before "
      "a text that begins with -");
  decode->add_option("--as", decodeAs, "Kind of value: auto, state, errors or kernel")
      ->check(CLI::IsMember({"auto", "state", "errors", "kernel"}));

  CLI::App* explain = nullptr;
  const auto explainCommand = explain::AddCommand(app, &explain);
  // Before explain's own: `explain --scenario` is the replay's.
  const std::vector<std::function<std::optional<int>()>> commands = {sim::replay::AddCommands(app, *explain),
                                                                     explainCommand, fleet::AddCommand(app)};

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : kExitError;
  }

  try {
    if (*run) return Play(runFiles, runOptions);
    if (*check) return Play(checkFiles, checkOptions);
    if (*hooks) return sim::ListHooks(libraryPath, std::cout, std::cerr);
    for (const auto& command : commands) {
      if (const std::optional<int> status = command()) return *status;
    }
    const std::vector<std::string> given = decode->remaining();
    decodeTexts.insert(decodeTexts.begin(), given.begin(), given.end());
    if (*decode && decodeTexts.empty()) {
      std::fprintf(stderr, "remedium-sim: decode needs a TEXT (a state, an error id list or a kernel parameter)\n");
      return kExitError;
    }
    if (*decode) return records::RunDecode(decodeTexts, decodeAs, std::cin, std::cout, std::cerr);
    const int status = Play({REMEDIUM_DEFAULT_SCENARIO}, runOptions);
    std::cout
        << "More: remedium-sim run|check FILE..., remedium-sim hooks, remedium-sim decode TEXT (--help for each).\n"
        << "Bundled scenarios: " << std::filesystem::path(REMEDIUM_DEFAULT_SCENARIO).parent_path().string() << "\n";
    return status;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "remedium-sim: %s\n", e.what());
    return kExitError;
  }
}
