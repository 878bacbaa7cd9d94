#include "text.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <regex>

namespace sim::scenario {
namespace {

// The library's framework identifiers by camera id (the list property).
constexpr struct {
  uint32_t camera;
  int32_t frameworkId;
} kFrameworkIds[] = {{0, 2}, {1, 1}, {2, 3}, {3, 4}, {4, 5}, {5, 9}};

constexpr char kStatePrefix[] = "vendor.debug.camera.imagesensorstate.";
constexpr char kErrorListProperty[] = "persist.vendor.camera.errorFrameworkId";
constexpr char kKernelParameterName[] = "sensor_apply_settings_control";

std::string Trim(const std::string& text) {
  size_t begin = 0;
  size_t end = text.size();
  while (begin < end && std::isspace(static_cast<unsigned char>(text[begin]))) ++begin;
  while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1]))) --end;
  return text.substr(begin, end - begin);
}

std::string StageName(const std::string& letter) {
  if (letter == "P") return "probe";
  if (letter == "I") return "initialisation";
  return "configuration";
}

}  // namespace

std::string Hex(uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

// The length of the valid UTF-8 sequence at `at`, or 0.
static size_t Utf8Length(const std::string& text, size_t at) {
  const auto byte = [&text](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
  const unsigned lead = byte(at);
  if (lead < 0x80) return 1;
  const size_t length = lead >= 0xC2 && lead <= 0xDF   ? 2
                        : lead >= 0xE0 && lead <= 0xEF ? 3
                        : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                       : 0;
  // The second byte's range excludes overlong forms, surrogates and values beyond U+10FFFF.
  const unsigned low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  for (size_t i = 1; i < length; ++i) {
    const unsigned next = byte(at + i);
    if (next < (i == 1 ? low : 0x80) || next > (i == 1 ? high : 0xBF)) return 0;
  }
  return length;
}

bool IsUtf8(const std::string& text) {
  for (size_t at = 0, length = 0; at < text.size(); at += length) {
    length = Utf8Length(text, at);
    if (length == 0) return false;
  }
  return true;
}

std::string EscapeUtf8(const std::string& text) {
  std::string out;
  for (size_t at = 0; at < text.size();) {
    const size_t length = Utf8Length(text, at);
    if (length == 0) {
      char escaped[8];
      std::snprintf(escaped, sizeof(escaped), "\\x%02X", static_cast<unsigned char>(text[at++]));
      out += escaped;
    } else {
      out += text[at] == '\\' ? std::string("\\\\") : text.substr(at, length);
      at += length;
    }
  }
  return out;
}

std::vector<int64_t> ParseNumberList(const std::string& text, size_t limit) {
  std::vector<int64_t> values;
  const char* at = text.c_str();
  while (values.size() < limit) {
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(at, &end, 10);
    if (end == at) break;
    values.push_back(value);
    at = end;
    if (*at == ',') ++at;
  }
  return values;
}

std::string DescribeKernelText(const std::string& text) {
  const std::vector<int64_t> values = ParseNumberList(text, 64);
  std::string nonZero;
  for (size_t i = 0; i < values.size(); ++i) {
    if (values[i] != 0) nonZero += " [" + std::to_string(i) + "]=" + std::to_string(values[i]);
  }
  std::string description = std::to_string(values.size()) + " values";
  if (values.size() != 64) description += " (not a table of 64)";
  return description + (nonZero.empty() ? ", all 0" : ", non-zero:" + nonZero);
}

std::string Describe(const sim::framework::CoreCallback& callback) {
  return callback.messageType + " " + callback.name + " (" + std::to_string(callback.arg0) + ", " +
         std::to_string(callback.arg1) + ", code " + Hex(callback.errorCode) + ")";
}

std::string DescribeRequest(const sim::framework::MessageCenterRequest& request) {
  std::string text = request.name + "(";
  const char* separator = "";
  for (const auto& [key, value] : request.data) {
    text += separator + key + "=";
    if (value.type == 3) {
      text += "\"" + value.text + "\"";
    } else if (value.type == 1) {
      text += std::to_string(value.int64Value);
    } else {
      text += std::to_string(value.intValue);
    }
    separator = ", ";
  }
  return text + ")";
}

Explanation ExplainImageSensorState(const std::string& raw) {
  Explanation explanation;
  explanation.kind = "image sensor state";
  const std::string value = Trim(raw);
  static const std::regex kGroup("<([PIC]):([SF-]):(\\d+)>");
  std::map<std::string, std::pair<std::string, std::string>> stages = {
      {"P", {"-", "0"}}, {"I", {"-", "0"}}, {"C", {"-", "0"}}};
  size_t groups = 0;
  for (auto it = std::sregex_iterator(value.begin(), value.end(), kGroup); it != std::sregex_iterator(); ++it) {
    stages[(*it)[1].str()] = {(*it)[2].str(), (*it)[3].str()};
    ++groups;
  }
  if (groups == 0) {
    explanation.ok = false;
    explanation.lines.push_back("no <stage:result:seconds> group in \"" + value +
                                "\"; a state reads like <P:S:12><I:S:15><C:-:0>");
    return explanation;
  }
  for (const char* letter : {"P", "I", "C"}) {
    const auto& [result, seconds] = stages[letter];
    std::string line = StageName(letter) + " (" + letter + "): ";
    if (result == "S") {
      line += "succeeded, recorded " + seconds + " s after boot";
    } else if (result == "F") {
      line += "failed, recorded " + seconds + " s after boot";
    } else {
      line += "not recorded";
    }
    explanation.lines.push_back(line);
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
  Explanation explanation;
  explanation.kind = "error framework id list";
  const std::string value = Trim(raw);
  // As the library reads it: up to six numbers, stopping at the first that
  // does not parse.
  const std::vector<int64_t> ids = ParseNumberList(value, 6);
  if (value.empty()) {
    explanation.lines.push_back("empty: no camera is in error");
    return explanation;
  }
  if (ids.empty()) {
    explanation.lines.push_back("\"" + value +
                                "\" does not begin with a number: the library reads it as an empty list");
    return explanation;
  }
  for (int64_t id : ids) {
    std::string line = "framework id " + std::to_string(id) + ": ";
    const char* camera = nullptr;
    for (const auto& row : kFrameworkIds) {
      if (row.frameworkId == id) {
        line += "camera (slot) " + std::to_string(row.camera) + " is in error";
        camera = "";
      }
    }
    if (camera == nullptr) {
      line += id == 0 ? "a camera id outside 0..5 (the library maps those to 0) is in error"
                      : "not a framework id the library writes";
    }
    explanation.lines.push_back(line);
  }
  if (ParseNumberList(value, 64).size() > 6) {
    explanation.lines.push_back("only the first six numbers are kept; the rest go at the next change");
  }
  return explanation;
}

Explanation ExplainKernelParameter(const std::string& raw) {
  Explanation explanation;
  explanation.kind = "kernel parameter";
  const std::string value = Trim(raw);
  const std::vector<int64_t> values = ParseNumberList(value, 64);
  if (values.empty()) {
    explanation.ok = false;
    explanation.lines.push_back("no numbers in \"" + value + "\"; the parameter reads like 0,0,0,... (64 numbers)");
    return explanation;
  }
  if (values.size() < 64) {
    explanation.lines.push_back(std::to_string(values.size()) +
                                " values: not a table of 64, so the library writes nothing back and ignores the "
                                "kernel's results");
  }
  bool any = false;
  for (size_t camera = 0; camera < 16; ++camera) {
    const auto at = [&values](size_t index) -> std::optional<int64_t> {
      return index < values.size() ? std::optional<int64_t>(values[index]) : std::nullopt;
    };
    const auto control = at(camera);
    const auto controlValue = at(camera + 16);
    const auto kmd = at(camera + 32);
    const auto cleared = at(camera + 48);
    if (control.value_or(0) == 0 && controlValue.value_or(0) == 0 && kmd.value_or(0) == 0 && cleared.value_or(0) == 0) {
      continue;
    }
    any = true;
    std::string line = "camera " + std::to_string(camera) + ":";
    if (control.value_or(0) == 1 && controlValue.value_or(0) == 3) {
      line += " marked for a kernel-assisted re-probe ([" + std::to_string(camera) + "]=1, [" +
              std::to_string(camera + 16) + "]=3);";
    } else {
      if (control.value_or(0) != 0)
        line += " apply-settings flag [" + std::to_string(camera) + "]=" + std::to_string(*control) + ";";
      if (controlValue.value_or(0) != 0) {
        line += " control value [" + std::to_string(camera + 16) + "]=" + std::to_string(*controlValue) + ";";
      }
    }
    if (kmd.value_or(0) != 0) {
      line += " kernel probe result (kmd) [" + std::to_string(camera + 32) + "]=" + std::to_string(*kmd) +
              ": the kernel reports the probe or its initial settings failed;";
    }
    if (cleared.value_or(0) != 0) {
      line += " [" + std::to_string(camera + 48) + "]=" + std::to_string(*cleared) +
              ": the kernel reports the initial settings failed;";
    }
    line.pop_back();
    explanation.lines.push_back(line);
  }
  if (!any) explanation.lines.push_back("every camera's entries are 0: nothing marked, no kernel failure reported");
  return explanation;
}

Explanation Explain(const std::string& raw) {
  std::string text = Trim(raw);
  std::string name;
  // getprop's "[name]: [value]"
  if (text.size() > 2 && text.front() == '[') {
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
  if (name.rfind(kStatePrefix, 0) == 0) return ExplainImageSensorState(text);
  if (name == kErrorListProperty) return ExplainErrorFrameworkIds(text);
  if (name.find(kKernelParameterName) != std::string::npos) return ExplainKernelParameter(text);
  if (!text.empty() && text.front() == '<') return ExplainImageSensorState(text);
  if (ParseNumberList(text, 64).size() >= 16) return ExplainKernelParameter(text);
  return ExplainErrorFrameworkIds(text);
}

}  // namespace sim::scenario
