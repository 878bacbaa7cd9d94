// remedium-seq: call sequences of the call-sequence fuzzer, by hand.
//   remedium-seq show INPUT            the steps, one a line
//   remedium-seq play INPUT            plays them on a fresh phone, checking the invariants
//   remedium-seq json INPUT [NAME]     the steps as a scenario file (for remedium-sim)
//   remedium-seq seed SCENARIO OUTPUT  a scenario file as an input (a seed)
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "sim/invariants/invariants.h"
#include "sim/sequence/sequence.h"

namespace {

namespace sc = sim::scenario;

int Usage() {
  std::cerr << "usage: remedium-seq show INPUT | play INPUT | json INPUT [NAME] | seed SCENARIO OUTPUT\n";
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return Usage();
  const std::string command = argv[1];
  if (command == "seed" && argc == 4) {
    sc::LoadError error;
    const auto scenario = sc::LoadScenarioFile(argv[2], &error);
    if (!scenario) {
      std::cerr << error.ToString() << "\n";
      return 1;
    }
    const std::vector<uint8_t> bytes = sim::sequence::Encode(*scenario);
    std::ofstream out(argv[3], std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return out ? 0 : 1;
  }
  std::ifstream in(argv[2], std::ios::binary);
  if (argc > 4 || !in) {
    if (!in) std::cerr << "remedium-seq: cannot read " << argv[2] << "\n";
    return Usage();
  }
  const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const sc::Scenario scenario =
      sim::sequence::Decode(bytes.data(), bytes.size(), argc == 4 ? argv[3] : "call sequence " + std::string(argv[2]));
  if (command == "show" && argc == 3) {
    for (size_t i = 0; i < scenario.steps.size(); ++i) {
      std::cout << i << ": " << sim::sequence::Describe(scenario.steps[i]) << "\n";
    }
    return 0;
  }
  if (command == "json") {
    // Text that is not UTF-8 is written with U+FFFD: JSON holds only Unicode.
    std::cout << sc::ScenarioJson(scenario).dump(2, ' ', false, sc::Json::error_handler_t::replace) << "\n";
    return 0;
  }
  if (command == "play" && argc == 3) {
    bool failed = false;
    const auto invariants = sim::invariants::Make({[&failed](const std::string& message) {
                                                     std::cout << message << "\n";
                                                     failed = true;
                                                   },
                                                   std::nullopt});
    sc::PlayOptions options;
    options.keepOutcomes = false;
    options.observers = {invariants.get()};
    size_t played = 0;
    options.stepDone = [&played](const sc::Scenario&, const sc::StepOutcome& outcome) { played += !outcome.restart; };
    const sc::RunResult run = sc::Play(scenario, options);
    if (!run.error.empty()) std::cout << run.error << "\n";
    std::cout << played << " of " << scenario.steps.size() << " steps played"
              << (failed || !run.error.empty() ? "" : ", invariants hold") << "\n";
    return failed || !run.error.empty() ? 1 : 0;
  }
  return Usage();
}
