// remedium-seq: call sequences of the call-sequence fuzzer, by hand.
//   remedium-seq show INPUT            the operations, one a line
//   remedium-seq play INPUT            plays them on a fresh phone, checking the invariants
//   remedium-seq json INPUT [NAME]     the operations as a scenario file (for remedium-sim)
//   remedium-seq seed SCENARIO OUTPUT  a scenario file as an input (a seed)
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "sim/scenario/scenario.h"
#include "sim/sequence/sequence.h"

namespace {

int Usage() {
  std::cerr << "usage: remedium-seq show INPUT | play INPUT | json INPUT [NAME] | seed SCENARIO OUTPUT\n";
  return 2;
}

bool ReadInput(const std::string& path, std::vector<sim::sequence::Op>* ops) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    std::cerr << "remedium-seq: cannot read " << path << "\n";
    return false;
  }
  const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  *ops = sim::sequence::Decode(bytes.data(), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return Usage();
  const std::string command = argv[1];
  std::vector<sim::sequence::Op> ops;
  if (command == "seed" && argc == 4) {
    sim::scenario::LoadError error;
    const auto scenario = sim::scenario::LoadScenarioFile(argv[2], &error);
    if (!scenario) {
      std::cerr << error.ToString() << "\n";
      return 1;
    }
    const std::vector<uint8_t> bytes = sim::sequence::Encode(sim::sequence::FromScenario(*scenario));
    std::ofstream out(argv[3], std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return out ? 0 : 1;
  }
  if (argc > 4 || !ReadInput(argv[2], &ops)) return Usage();
  if (command == "show") {
    for (size_t i = 0; i < ops.size(); ++i) std::cout << i << ": " << sim::sequence::Describe(ops[i]) << "\n";
    return 0;
  }
  if (command == "json") {
    std::cout << sim::sequence::ToScenarioJson(ops, argc == 4 ? argv[3] : "call sequence " + std::string(argv[2]));
    return 0;
  }
  if (command == "play" && argc == 3) {
    bool failed = false;
    sim::sequence::PlayHooks hooks;
    hooks.violation = [&failed](const std::string& message) {
      std::cout << message << "\n";
      failed = true;
    };
    const size_t played = sim::sequence::Play(ops, hooks);
    std::cout << played << " of " << ops.size() << " operations played" << (failed ? "" : ", invariants hold") << "\n";
    return failed ? 1 : 0;
  }
  return Usage();
}
