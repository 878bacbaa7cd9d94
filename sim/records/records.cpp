#include "sim/records/records.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdint>
#include <iterator>
#include <map>
#include <regex>
#include <sstream>

#include "hook/src/errorframeworkid.h"
#include "hook/src/kernelchannel.h"
#include "hook/src/numberlist.h"

namespace sim::records {

using text::Trim;

std::vector<int64_t> ParseNumberList(const std::string& text, size_t limit) {
  const std::vector<long> values = CamX::StringToArray64(text, 0);
  return {values.begin(), values.begin() + static_cast<std::ptrdiff_t>(std::min(limit, values.size()))};
}

std::optional<std::vector<int64_t>> ParseWrittenNumberList(const std::string& text) {
  const std::vector<long> values = CamX::StringToArray64(text, 0);
  if (CamX::ArrayToString64(values) != text) return std::nullopt;
  return std::vector<int64_t>(values.begin(), values.end());
}

std::string DescribeKernelText(const std::string& text) {
  const std::vector<int64_t> values = ParseNumberList(text, 64);
  std::string nonZero;
  for (size_t i = 0; i < values.size(); ++i) {
    if (values[i] != 0) nonZero += " [" + std::to_string(i) + "]=" + std::to_string(values[i]);
  }
  return std::to_string(values.size()) + " values" + (values.size() != 64 ? " (not a table of 64)" : "") +
         (nonZero.empty() ? ", all 0" : ", non-zero:" + nonZero);
}

Explanation ExplainImageSensorState(const std::string& raw) {
  Explanation explanation{true, "image sensor state", {}};
  const std::string value(Trim(raw));
  static const std::regex kGroup("<([PIC]):([SF-]):(\\d+)>");
  std::map<std::string, std::pair<std::string, std::string>> stages = {
      {"P", {"-", "0"}}, {"I", {"-", "0"}}, {"C", {"-", "0"}}};
  size_t groups = 0;
  for (auto it = std::sregex_iterator(value.begin(), value.end(), kGroup); it != std::sregex_iterator();
       ++it, ++groups) {
    stages[(*it)[1].str()] = {(*it)[2].str(), (*it)[3].str()};
  }
  if (groups == 0) {
    return {false,
            explanation.kind,
            {"no <stage:result:seconds> group in \"" + value + "\"; a state reads like <P:S:12><I:S:15><C:-:0>"}};
  }
  for (const auto& [letter, name] : {std::pair{"P", "probe"}, {"I", "initialisation"}, {"C", "configuration"}}) {
    const auto& [result, seconds] = stages[letter];
    explanation.lines.push_back(std::string(name) + " (" + letter + "): " +
                                (result == "-" ? "not recorded"
                                               : (result == "S" ? "succeeded" : "failed") + std::string(", recorded ") +
                                                     seconds + " s after boot"));
  }
  if (stages["P"].first == "F") {
    explanation.lines.push_back(
        "the probe is recorded failed: the library skips this slot's sensor initialisation "
        "and configuration and reports them failed");
  }
  if (groups > 3) explanation.lines.push_back("the value holds repeated groups; the later group of a stage counts");
  return explanation;
}

Explanation ExplainErrorFrameworkIds(const std::string& raw) {
  const std::string value(Trim(raw));
  // As the library reads it: numbers that fit an int, stopping at the first that does not; six kept.
  std::vector<int64_t> listed = ParseNumberList(value, SIZE_MAX);
  listed.erase(std::find_if(listed.begin(), listed.end(), [](int64_t id) { return id < INT_MIN || id > INT_MAX; }),
               listed.end());
  const std::vector<int64_t> ids(listed.begin(), listed.begin() + std::min<std::ptrdiff_t>(listed.size(), 6));
  Explanation explanation{true, "error framework id list", {}};
  if (value.empty()) explanation.lines.push_back("empty: no camera is in error");
  if (!value.empty() && ids.empty()) {
    explanation.lines.push_back("\"" + value +
                                "\" does not begin with a number: the library reads it as an empty list");
  }
  for (int64_t id : ids) {
    const auto camera = std::find(std::begin(CamX::kFrameworkIdOfCamera), std::end(CamX::kFrameworkIdOfCamera), id);
    explanation.lines.push_back(
        "framework id " + std::to_string(id) + ": " +
        (camera != std::end(CamX::kFrameworkIdOfCamera)
             ? "camera (slot) " + std::to_string(camera - std::begin(CamX::kFrameworkIdOfCamera)) + " is in error"
         : id == 0 ? "a camera id outside 0..5 (the library maps those to 0) is in error"
                   : "not a framework id the library writes"));
  }
  if (listed.size() > ids.size()) {
    explanation.lines.push_back("only the first six numbers are kept; the rest go at the next change");
  }
  return explanation;
}

Explanation ExplainKernelParameter(const std::string& raw) {
  const std::string value(Trim(raw));
  std::vector<int64_t> values = ParseNumberList(value, 64);
  Explanation explanation{!values.empty(), "kernel parameter", {}};
  if (values.empty()) {
    explanation.lines.push_back("no numbers in \"" + value + "\"; the parameter reads like 0,0,0,... (64 numbers)");
    return explanation;
  }
  if (values.size() < CamX::kProbeResultTableSize) {
    explanation.lines.push_back(std::to_string(values.size()) +
                                " values: not a table of 64, so the library writes nothing back and ignores the "
                                "kernel's results");
  }
  const size_t before = explanation.lines.size();
  values.resize(CamX::kProbeResultTableSize, 0);  // entries beyond a short table read as 0
  const auto entry = [&values](size_t block, uint32_t camera, const std::string& what) {
    return " " + what + "[" + std::to_string(block + camera) +
           "]=" + std::to_string(CamX::BlockEntry(values, block, camera));
  };
  for (uint32_t camera = 0; camera < CamX::kProbeResultBlockSize; ++camera) {
    const int64_t control = CamX::BlockEntry(values, CamX::kApplyControlBlock, camera);
    const int64_t controlValue = CamX::BlockEntry(values, CamX::kControlValueBlock, camera);
    std::string line;
    if (control == CamX::kApplyControlMarked && controlValue == CamX::kControlValueMarked) {
      line += " marked for a kernel-assisted re-probe ([" + std::to_string(CamX::kApplyControlBlock + camera) +
              "]=1, [" + std::to_string(CamX::kControlValueBlock + camera) + "]=3);";
    } else {
      if (control != 0) line += entry(CamX::kApplyControlBlock, camera, "apply-settings flag ") + ";";
      if (controlValue != 0) line += entry(CamX::kControlValueBlock, camera, "control value ") + ";";
    }
    if (CamX::KmdResult(values, camera) != 0) {
      line += entry(CamX::kKmdResultBlock, camera, "kernel probe result (kmd) ") +
              ": the kernel reports the probe or its initial settings failed;";
    }
    if (CamX::ClearedControl(values, camera) != 0) {
      line += entry(CamX::kClearedControlBlock, camera, "") + ": the kernel reports the initial settings failed;";
    }
    if (!line.empty())
      explanation.lines.push_back("camera " + std::to_string(camera) + ":" + line.substr(0, line.size() - 1));
  }
  if (explanation.lines.size() == before) {
    explanation.lines.push_back("every camera's entries are 0: nothing marked, no kernel failure reported");
  }
  return explanation;
}

Explanation Explain(const std::string& raw) {
  std::string text(Trim(raw));
  std::string name;
  if (text.size() > 2 && text.front() == '[') {  // getprop's "[name]: [value]"
    const size_t close = text.find("]: [");
    if (close != std::string::npos && text.back() == ']') {
      name = text.substr(1, close - 1);
      text = text.substr(close + 4, text.size() - close - 5);
    }
  } else if (const size_t equals = text.find('='); equals != std::string::npos && text.front() != '<' &&
                                                   !std::isdigit(static_cast<unsigned char>(text.front())) &&
                                                   text.front() != '-') {
    name = text.substr(0, equals);
    text = text.substr(equals + 1);
  }
  if (name.rfind("vendor.debug.camera.imagesensorstate.", 0) == 0) return ExplainImageSensorState(text);
  if (name == CamX::kErrorFrameworkIdProperty) return ExplainErrorFrameworkIds(text);
  if (name.find("sensor_apply_settings_control") != std::string::npos) return ExplainKernelParameter(text);
  if (!text.empty() && text.front() == '<') return ExplainImageSensorState(text);
  if (ParseNumberList(text, 64).size() >= 16) return ExplainKernelParameter(text);
  return ExplainErrorFrameworkIds(text);
}

int RunDecode(std::vector<std::string> texts, const std::string& as, std::istream& in, std::ostream& out,
              std::ostream& err) {
  constexpr size_t kMaxInput = 1 << 20;  // bytes "decode -" reads
  if (texts.size() == 1 && texts[0] == "-") {
    std::string input(kMaxInput + 1, '\0');
    in.read(input.data(), static_cast<std::streamsize>(input.size()));
    input.resize(static_cast<size_t>(in.gcount()));
    if (input.size() > kMaxInput) {
      err << "remedium-sim: decode -: stdin holds more than 1 MiB (" << kMaxInput << " bytes), the most it reads\n";
      return 2;
    }
    texts.clear();
    std::istringstream lines(input);
    for (std::string line; std::getline(lines, line);) {
      if (!line.empty()) texts.push_back(line);
    }
  }
  int status = 0;
  for (const std::string& text : texts) {
    const Explanation explanation = as == "state"    ? ExplainImageSensorState(text)
                                    : as == "errors" ? ExplainErrorFrameworkIds(text)
                                    : as == "kernel" ? ExplainKernelParameter(text)
                                                     : Explain(text);
    out << text << "\n  " << explanation.kind << ":\n";
    for (const std::string& line : explanation.lines) out << "    " << line << "\n";
    if (!explanation.ok) status = 2;
  }
  return status;
}

}  // namespace sim::records
