#include "sim/scenario/report.h"

namespace sim::scenario {

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

}  // namespace sim::scenario
