// Golden transcripts: what the library did in a scenario, as a stable text.
//
//   golden-transcript REPORT.json OUT.txt
//
// Reads the --json report of `remedium-sim run` for one scenario and writes
// the observable events only (HAL results, log lines, properties, kernel
// writes, calls into the core and the message centre, per-step results), not
// the report's layout. Heap addresses and wall-clock durations, which differ
// from run to run, are masked.
#include <fstream>
#include <iostream>
#include <regex>
#include <string>

#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::ordered_json;

// "%p" of a heap object: the only run-dependent text the library logs.
std::string Masked(const std::string& text) {
  static const std::regex kPointer("0x[0-9a-f]{9,}");
  return std::regex_replace(text, kPointer, "0x<ptr>");
}

std::string Line(const Json& value) { return Masked(value.is_string() ? value.get<std::string>() : value.dump()); }

void Transcript(const Json& scenario, std::ostream& out) {
  out << "scenario " << Line(scenario.value("name", Json())) << "\n";
  if (scenario.contains("error")) out << "error " << Line(scenario["error"]) << "\n";
  for (const Json& step : scenario.value("steps", Json::array())) {
    out << "\nstep " << step.value("step", 0) << " " << Line(step.value("path", Json()));
    if (step.contains("call")) out << " #" << step.value("repetition", 0);
    out << ": " << Line(step.value("title", Json())) << "\n";
    for (const Json& event : step.value("events", Json::array())) {
      out << "  " << Line(event["source"]) << " " << Line(event["text"]) << "\n";
    }
    Json observed = step.value("observed", Json::object());
    if (observed.is_object()) observed.erase("durationAtLeastUs");  // wall time
    out << "  = " << Line(observed) << " hal " << Line(step.value("halResults", Json::array())) << "\n";
  }
  const Json& final = scenario.value("final", Json::object());
  out << "\nfinal\n";
  const Json properties = final.value("properties", Json::object());  // kept alive for the loop
  for (const auto& [key, value] : properties.items()) {
    out << "  property " << key << "=" << Line(value) << "\n";
  }
  out << "  kernelParameter " << Line(final.value("kernelParameter", Json())) << "\n";
  for (const char* key : {"kernelWrites", "notifications", "callbacks", "probeRecords", "messageCenterRequests"}) {
    for (const Json& item : final.value(key, Json::array())) out << "  " << key << " " << Line(item) << "\n";
  }
  for (const char* key : {"switchQueries", "argumentQueries", "halCalls", "restarts", "reboots", "aborts"}) {
    out << "  " << key << " " << Line(final.value(key, Json())) << "\n";
  }
  const Json& check = scenario.value("check", Json::object());
  out << "  check " << Line(check.value("checked", Json())) << " " << Line(check.value("ok", Json())) << "\n";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: golden-transcript REPORT.json OUT.txt\n";
    return 2;
  }
  std::ifstream in(argv[1]);
  Json report = Json::parse(in, nullptr, false);
  if (report.is_discarded() || !report.contains("scenarios") || report["scenarios"].size() != 1) {
    std::cerr << "golden-transcript: " << argv[1] << " is not the report of one scenario\n";
    return 2;
  }
  std::ofstream out(argv[2], std::ios::trunc);
  Transcript(report["scenarios"][0], out);
  return out ? 0 : 2;
}
