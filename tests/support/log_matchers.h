// Helpers to look at what the library wrote to the simulated Android log.
#pragma once

#include <string>
#include <vector>

#include "sim/platform/simlog.h"

namespace test {

// The texts of the lines written under `tag`, in order.
inline std::vector<std::string> LogTexts(const std::string& tag = "[REMEDIUM]") {
  std::vector<std::string> texts;
  for (const sim::LogLine& line : sim::LogLines()) {
    if (line.tag == tag) texts.push_back(line.text);
  }
  return texts;
}

}  // namespace test
