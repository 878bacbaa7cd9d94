#include "sim/records/records.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <regex>

#include "hook/src/errorframeworkid.h"
#include "hook/src/kernelchannel.h"

namespace sim::records {
namespace {

// The length of the valid UTF-8 sequence at `at`, or 0. The second byte's
// range excludes overlong forms, surrogates and values beyond U+10FFFF.
size_t Utf8Length(std::string_view text, size_t at) {
  const auto byte = [text](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
  const unsigned lead = byte(at);
  if (lead < 0x80) return 1;
  const size_t length = lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
  const unsigned low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  for (size_t i = 1; i < length; ++i) {
    if (byte(at + i) < (i == 1 ? low : 0x80) || byte(at + i) > (i == 1 ? high : 0xBF)) return 0;
  }
  return length;
}

}  // namespace

bool IsUtf8(std::string_view text) {
  for (size_t at = 0, length = 1; at < text.size(); at += length) {
    // Plain ASCII, eight bytes at a time: the explainer checks every line it reads.
    if (text.size() - at >= 8) {
      uint64_t word;
      std::memcpy(&word, text.data() + at, sizeof word);
      if ((word & 0x8080808080808080ULL) == 0) {
        length = 8;
        continue;
      }
    }
    if ((length = Utf8Length(text, at)) == 0) return false;
  }
  return true;
}

std::string EscapeUtf8(std::string_view text) {
  std::string out;
  for (size_t at = 0, length = 0; at < text.size(); at += std::max<size_t>(length, 1)) {
    char escaped[8];
    std::snprintf(escaped, sizeof(escaped), "\\x%02X", static_cast<unsigned char>(text[at]));
    length = Utf8Length(text, at);
    if (length == 0) {
      out += escaped;
    } else if (text[at] == '\\') {
      out += "\\\\";
    } else {
      out += text.substr(at, length);
    }
  }
  return out;
}

std::string_view Trim(std::string_view text, std::string_view space) {
  const size_t begin = text.find_first_not_of(space);
  return begin == std::string_view::npos ? std::string_view{}
                                         : text.substr(begin, text.find_last_not_of(space) + 1 - begin);
}

std::vector<int64_t> ParseNumberList(const std::string& text, size_t limit) {
  std::vector<int64_t> values;
  for (const char* at = text.c_str(); values.size() < limit;) {
    char* end = nullptr;
    const long long value = std::strtoll(at, &end, 10);
    if (end == at) break;
    values.push_back(value);
    at = *end == ',' ? end + 1 : end;
  }
  return values;
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
  // As the library reads it: up to six numbers, stopping at the first that does not parse.
  const std::vector<int64_t> ids = ParseNumberList(value, 6);
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
  if (ParseNumberList(value, 64).size() > 6) {
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

}  // namespace sim::records
