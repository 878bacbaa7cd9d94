// remedium-sim: runs the real hook library on a simulated phone.
//
//   remedium-sim                      plays the bundled default scenario
//   remedium-sim run FILE...          plays scenario files and shows what the library did
//   remedium-sim check FILE...        plays them and compares with their expectations
//   remedium-sim hooks                lists the proxies the library exports
//   remedium-sim decode TEXT...       explains a state property, error list or kernel parameter
//
// Exit status: 0 done, 1 an expectation not met (check) or a proxy missing
// (hooks), 2 a problem to fix first (a malformed scenario, a missing library,
// a wrong command line).
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "checker.h"
#include "harness.h"
#include "player.h"
#include "report.h"
#include "scenario.h"
#include "text.h"

namespace {

namespace sc = sim::scenario;

constexpr int kExitMismatch = 1;
constexpr int kExitError = 2;

// The progress line for long runs, on stderr, rewritten in place.
class Progress {
 public:
  Progress(bool enabled, size_t files) : m_enabled(enabled), m_files(files) {}
  void File(size_t index, const std::string& name) {
    m_file = index;
    m_name = name;
  }
  void Update(size_t done, size_t total) {
    if (!m_enabled) return;
    const auto now = std::chrono::steady_clock::now();
    if (done != total && now - m_last < std::chrono::milliseconds(100)) return;
    m_last = now;
    std::fprintf(stderr, "\r  [%zu/%zu] %s: call %zu of %zu (%zu%%)   ", m_file + 1, m_files, m_name.c_str(), done,
                 total, total ? done * 100 / total : 100);
    m_shown = true;
  }
  void Clear() {
    if (!m_shown) return;
    std::fprintf(stderr, "\r%*s\r", 100, "");
    m_shown = false;
  }

 private:
  bool m_enabled;
  size_t m_files;
  size_t m_file = 0;
  std::string m_name;
  bool m_shown = false;
  std::chrono::steady_clock::time_point m_last{};
};

// Reads every scenario before the first is played (a run enters the
// simulated device's root, so relative paths are resolved first).
bool LoadAll(const std::vector<std::string>& files, std::vector<sc::Scenario>* scenarios) {
  bool ok = true;
  for (const std::string& file : files) {
    sc::LoadError error;
    std::optional<sc::Scenario> scenario = sc::LoadScenarioFile(file, &error);
    if (!scenario) {
      std::fprintf(stderr, "remedium-sim: %s\n", error.ToString().c_str());
      ok = false;
      continue;
    }
    scenarios->push_back(std::move(*scenario));
  }
  return ok;
}

struct RunOptions {
  bool check = false;
  bool logcat = false;
  bool verbose = false;
  bool quiet = false;
  std::string jsonPath;
  std::string progress = "auto";
};

bool WriteJson(const std::string& path, const sc::Json& report) {
  std::ofstream out(path, std::ios::trunc);
  out << report.dump(2) << "\n";
  out.close();
  if (!out) {
    std::fprintf(stderr, "remedium-sim: cannot write the report to %s\n", path.c_str());
    return false;
  }
  return true;
}

int Play(const std::vector<std::string>& files, const RunOptions& options) {
  std::vector<sc::Scenario> scenarios;
  if (!LoadAll(files, &scenarios)) return kExitError;
  std::string jsonPath;
  if (!options.jsonPath.empty()) jsonPath = std::filesystem::absolute(options.jsonPath).string();

  size_t calls = 0;
  for (const sc::Scenario& scenario : scenarios) calls += scenario.callCount;
  const bool showProgress = options.progress == "on" || (options.progress == "auto" && isatty(STDERR_FILENO) &&
                                                         (calls > 200 || scenarios.size() > 3));
  Progress progress(showProgress, scenarios.size());
  const bool timeline = !options.check && !options.quiet;
  sc::TimelineOptions timelineOptions{options.verbose, options.logcat};

  sc::Json report = {
      {"tool", "remedium-sim"}, {"command", options.check ? "check" : "run"}, {"scenarios", sc::Json::array()}};
  int status = 0;
  size_t passed = 0;
  for (size_t i = 0; i < scenarios.size(); ++i) {
    const sc::Scenario& scenario = scenarios[i];
    progress.File(i, scenario.file);
    if (timeline) std::cout << sc::FormatHeader(scenario) << std::flush;
    sc::PlayOptions play;
    play.progress = [&progress](size_t done, size_t total) { progress.Update(done, total); };
    if (timeline) {
      play.stepDone = [&](const sc::Scenario& played, const sc::StepOutcome& outcome) {
        progress.Clear();
        std::cout << sc::FormatStep(played, outcome, timelineOptions) << std::flush;
      };
    }
    const sc::RunResult run = sc::Play(scenario, play);
    progress.Clear();
    const sc::CheckResult check = sc::Check(scenario, run);
    report["scenarios"].push_back(sc::ReportJson(scenario, run, check));
    if (!run.error.empty()) {
      std::fprintf(stderr, "remedium-sim: %s: %s\n", scenario.file.c_str(), run.error.c_str());
      status = kExitError;
    }
    if (timeline) std::cout << sc::FormatSummary(scenario, run, check) << "\n";
    if (options.check && run.error.empty()) {
      if (check.ok()) {
        ++passed;
        if (!options.quiet) std::cout << "PASS " << scenario.file << " (" << check.checked << " expectations)\n";
      } else {
        std::cout << "FAIL " << scenario.file << ": " << check.mismatches.size() << " of " << check.checked
                  << " expectations not met\n"
                  << sc::FormatMismatches(check);
        if (status == 0) status = kExitMismatch;
      }
      if (check.checked == 0) std::cout << "     (this file has no expectations)\n";
    }
    std::cout << std::flush;
  }
  if (options.check && scenarios.size() > 1) {
    std::cout << passed << " of " << scenarios.size() << " scenario(s) passed\n";
  }
  if (!jsonPath.empty() && !WriteJson(jsonPath, report)) return kExitError;
  return status;
}

int ListHooks(const std::string& libraryPath) {
  std::string error;
  const std::unique_ptr<sim::HookLibrary> library = sim::HookLibrary::Load(libraryPath, &error);
  if (!library) {
    std::fprintf(stderr, "remedium-sim: %s\n", error.c_str());
    return kExitError;
  }
  std::cout << "hook library: " << libraryPath << "\n";
  size_t resolved = 0;
  std::vector<const sim::CatalogueEntry*> missing;
  for (const sim::CatalogueEntry& entry : sim::Catalogue()) {
    if (library->Symbol(entry.mangled) == nullptr) {
      missing.push_back(&entry);
      continue;
    }
    ++resolved;
    std::printf("  %-34s %s%s\n", entry.name, sim::Signature(entry).c_str(),
                entry.halFunction == nullptr ? "  [called by the hooks, installed over nothing]" : "");
  }
  for (const sim::CatalogueEntry* entry : missing) {
    std::printf("  MISSING %-26s %s (symbol %s)\n", entry->name, sim::Signature(*entry).c_str(), entry->mangled);
  }
  std::cout << resolved << " of " << sim::Catalogue().size() << " exported names resolved";
  if (!missing.empty()) std::cout << "; " << missing.size() << " missing";
  std::cout << "\n";
  return missing.empty() ? 0 : kExitMismatch;
}

int Decode(const std::vector<std::string>& texts, const std::string& as) {
  std::vector<std::string> inputs = texts;
  if (inputs.size() == 1 && inputs[0] == "-") {
    inputs.clear();
    for (std::string line; std::getline(std::cin, line);) {
      if (!line.empty()) inputs.push_back(line);
    }
  }
  int status = 0;
  for (const std::string& text : inputs) {
    sc::Explanation explanation;
    if (as == "state") {
      explanation = sc::ExplainImageSensorState(text);
    } else if (as == "errors") {
      explanation = sc::ExplainErrorFrameworkIds(text);
    } else if (as == "kernel") {
      explanation = sc::ExplainKernelParameter(text);
    } else {
      explanation = sc::Explain(text);
    }
    std::cout << text << "\n  " << explanation.kind << ":\n";
    for (const std::string& line : explanation.lines) std::cout << "    " << line << "\n";
    if (!explanation.ok) status = kExitError;
  }
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "Runs the camera hook library com.velora.remedium.hook.camx.so on a simulated phone.\n"
      "Without a command, plays the bundled default scenario.",
      "remedium-sim"};
  app.require_subcommand(0, 1);

  RunOptions runOptions;
  std::vector<std::string> runFiles;
  CLI::App* run = app.add_subcommand("run", "Play scenario files and show what the library did, step by step");
  run->add_option("FILE", runFiles, "Scenario files (JSON; see sim/scenarios/README.md)")->required();
  run->add_flag("--logcat", runOptions.logcat, "Print the library's log lines in logcat's format");
  run->add_option("--json", runOptions.jsonPath, "Write a machine-readable report to this file");
  run->add_flag("-v,--verbose", runOptions.verbose,
                "Show every log line in the timeline, not only warnings and errors");
  run->add_flag("-q,--quiet", runOptions.quiet, "Print no timeline (with --json)");
  run->add_option("--progress", runOptions.progress, "Progress line on stderr: auto, on or off")
      ->check(CLI::IsMember({"auto", "on", "off"}));

  RunOptions checkOptions;
  checkOptions.check = true;
  std::vector<std::string> checkFiles;
  CLI::App* check = app.add_subcommand("check", "Play scenario files and compare with the expectations in each");
  check->add_option("FILE", checkFiles, "Scenario files (JSON)")->required();
  check->add_option("--json", checkOptions.jsonPath, "Write a machine-readable report to this file");
  check->add_flag("-q,--quiet", checkOptions.quiet, "Print only failures");
  check->add_option("--progress", checkOptions.progress, "Progress line on stderr: auto, on or off")
      ->check(CLI::IsMember({"auto", "on", "off"}));

  std::string libraryPath = sim::HookLibraryPath();
  CLI::App* hooks = app.add_subcommand("hooks", "List the proxies the hook library exports, and any missing");
  hooks->add_option("--library", libraryPath, "The hook library to inspect")->capture_default_str();

  std::vector<std::string> decodeTexts;
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

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : kExitError;
  }

  try {
    if (*run) return Play(runFiles, runOptions);
    if (*check) return Play(checkFiles, checkOptions);
    if (*hooks) return ListHooks(libraryPath);
    if (*decode) {
      decodeTexts = decode->remaining();
      if (decodeTexts.empty()) {
        std::fprintf(stderr, "remedium-sim: decode needs a TEXT (a state, an error id list or a kernel parameter)\n");
        return kExitError;
      }
      return Decode(decodeTexts, decodeAs);
    }
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
