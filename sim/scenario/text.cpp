#include <cstdio>

#include "sim/scenario/report.h"

namespace sim::scenario {

std::string Hex(uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

std::string KernelText(const sim::SysfsWrite& write) { return write.bytes.substr(0, write.bytes.find('\0')); }

std::string Describe(const sim::framework::CoreCallback& callback) {
  return callback.messageType + " " + callback.name + " (" + std::to_string(callback.arg0) + ", " +
         std::to_string(callback.arg1) + ", code " + Hex(callback.errorCode) + ")";
}

Json ToJson(const sim::framework::CoreCallback& c) {
  return {
      {"arg0", c.arg0}, {"arg1", c.arg1}, {"errorCode", c.errorCode}, {"name", c.name}, {"messageType", c.messageType}};
}

Json ToJson(const sim::framework::MessageCenterRequest& request) {
  Json data = Json::object();
  for (const auto& [key, value] : request.data) {
    data[key] = value.type == 3   ? Json(value.text)
                : value.type == 1 ? Json(value.int64Value)
                : value.type == 0 ? Json(value.intValue)
                                  : Json();
  }
  return {{"name", request.name}, {"data", data}};
}

std::string DescribeRequest(const sim::framework::MessageCenterRequest& request) {
  std::string text;
  for (const auto& [key, value] : request.data) {
    text += (text.empty() ? "" : ", ") + key + "=" +
            (value.type == 3   ? "\"" + value.text + "\""
             : value.type == 1 ? std::to_string(value.int64Value)
                               : std::to_string(value.intValue));
  }
  return request.name + "(" + text + ")";
}

}  // namespace sim::scenario
