// Scenario files as their authors get them wrong: every problem names the
// file, the place inside it and what was expected, and no input crashes the
// loader.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/scenario/scenario.h"

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
namespace sc = sim::scenario;

constexpr char kValid[] = R"({
  "name": "n",
  "device": {"cameras": [{"id": 0, "slot": 2, "sensors": ["s5kgm2_rear", "imx582_rear"], "eeproms": ["otp"]},
                         {"id": 16, "slot": 0}]},
  "steps": [
    {"call": "SensorProbe", "camera": 0, "hal": [1, 0], "kernel": [-110, null]},
    {"call": "GetStaticCaps", "camera": 0, "expect": {"result": 0}},
    {"call": "CreateI2CInfoCmd", "slaveAddress": "0x18", "expect": {"slaveAddress": "0x66"}},
    {"set": {"kernelParameter": {"count": 3, "1": -5}, "core": {"switches": {"2": true}}}},
    {"restart": true}
  ]
})";

sc::LoadError Fails(const std::string& text) {
  sc::LoadError error;
  EXPECT_FALSE(sc::ParseScenario(text, "bad.json", &error).has_value()) << text;
  return error;
}

// The valid scenario with `from` replaced by `to` (once).
std::string Edited(const std::string& from, const std::string& to) {
  std::string text = kValid;
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

TEST(ScenarioLoad, ReadsStepsWithTheirDefaultsAndScripts) {
  sc::LoadError error;
  const std::optional<sc::Scenario> scenario = sc::ParseScenario(kValid, "ok.json", &error);
  ASSERT_TRUE(scenario.has_value()) << error.ToString();
  ASSERT_EQ(scenario->steps.size(), 5u);
  const sc::Step& probe = scenario->steps[0];
  EXPECT_EQ(probe.args.sensor, "s5kgm2_rear");  // the camera's first sensor
  ASSERT_EQ(probe.hal.calls.size(), 2u);        // one outcome per call, then the defaults
  EXPECT_EQ(probe.hal.calls[0].result, 1);
  EXPECT_EQ(probe.hal.calls[0].kernel, -110);
  EXPECT_EQ(probe.hal.calls[1].result, 0);
  EXPECT_FALSE(probe.hal.calls[1].kernel.has_value());
  EXPECT_EQ(probe.hal.after.result, 0);
  EXPECT_EQ(scenario->steps[1].args.slot, 2u);  // the device's slot
  EXPECT_EQ(scenario->steps[2].args.slaveAddress, 0x18u);
  ASSERT_EQ(scenario->steps[2].expect.fields.size(), 1u);
  EXPECT_EQ(scenario->steps[2].expect.fields[0].second, sim::Value(int64_t{0x66}));  // hexadecimal read as a number
  EXPECT_EQ(scenario->steps[3].changes.kernelParameter->text, "0,-5,0");
  EXPECT_EQ(scenario->setup.kernelParameter->text, sc::ZeroTable());  // 64 zeros by default
  EXPECT_EQ(scenario->callCount, 3u);
}

TEST(ScenarioLoad, SyntaxErrorsGiveLineAndColumn) {
  const sc::LoadError error = Fails("{\n  \"name\": \"n\",\n  \"steps\": [,]\n}");
  EXPECT_EQ(error.file, "bad.json");
  EXPECT_THAT(error.ToString(), AllOf(HasSubstr("bad.json"), HasSubstr("not valid JSON at line 3")));
}

TEST(ScenarioLoad, ProblemsNameTheJsonPathAndWhatWasExpected) {
  struct Case {
    std::string text;
    std::string path;
    std::string message;
  };
  const std::vector<Case> cases = {
      {"[1, 2]", "", "expected an object at the top"},
      {Edited(R"("name": "n",)", ""), "", "needs a \"name\""},
      {Edited(R"("hal": [1, 0])", R"("hal": "ok")"), "steps[0].hal", "expected a HAL result"},
      {Edited(R"("hal": [1, 0])", R"("hal": [1, 0], "hall": 1)"), "steps[0]", "unknown key \"hall\""},
      {Edited(R"("camera": 0, "expect")", R"("camera": 3, "expect")"), "steps[1].camera",
       "camera 3 is not on the device (device.cameras has 0, 16)"},
      {Edited(R"("camera": 0, "hal": [1, 0])", R"("camera": 0, "sensor": "s5kgm2_raer")"), "steps[0].sensor",
       "not a sensor of camera 0 (device lists s5kgm2_rear, imx582_rear)"},
      {Edited(R"({"call": "GetStaticCaps", "camera": 0,)", R"({"call": "InitializeSensorDevice", "camera": 16,)"),
       "steps[1].camera", "outside the 16-entry slot table"},
      {Edited(R"("expect": {"result": 0})", R"("expect": {"initState": 1})"), "steps[1].expect",
       "unknown key \"initState\" in the expectations of a GetStaticCaps call"},
      {Edited(R"("call": "GetStaticCaps")", R"("call": "GetStaticCap")"), "steps[1].call",
       "\"GetStaticCap\" is not a hooked HAL function"},
      {Edited(R"("slaveAddress": "0x18")", R"("slaveAddress": 99999999999999999999999)"), "steps[2].slaveAddress",
       "expected an I2C slave address"},
      {Edited(R"("slaveAddress": "0x18")", R"("slaveAddress": "0x1g")"), "steps[2].slaveAddress",
       "expected an I2C slave address"},
      {Edited(R"({"restart": true})", R"({"restart": true, "call": "GetStaticCaps"})"), "steps[4]", "exactly one of"},
      {Edited(R"({"restart": true})",
              R"({"call": "ActuatorData", "actuator": "ak7377", "slaveAddress": 24, "hal": 0})"),
       "steps[4].hal", "ActuatorData returns nothing"},
      {Edited(R"("1": -5)", R"("64": -5)"), "steps[3].set.kernelParameter.64", "an index from \"0\" to \"2\""},
      {Edited(R"("switches": {"2": true})", R"("switches": {"two": true})"), "steps[3].set.core.switches.two",
       "a switch kind is a number"},
      {Edited(R"("eeproms": ["otp"])", R"("eeproms": "otp")"), "device.cameras[0].eeproms",
       "expected an array of EEPROM names"},
      {Edited(R"({"id": 16, "slot": 0})", R"({"id": 0, "slot": 0})"), "device.cameras[1].id", "listed twice"},
  };
  for (const Case& c : cases) {
    const sc::LoadError error = Fails(c.text);
    EXPECT_EQ(error.path, c.path) << c.message;
    EXPECT_THAT(error.message, HasSubstr(c.message)) << error.ToString();
    EXPECT_THAT(error.ToString(), HasSubstr("bad.json"));
  }
}

// Sizes beyond the documented limits are refused with the place and the
// limit, in time and memory bounded by the limits, not by the input.
TEST(ScenarioLoad, LimitsAreRefusedWithThePlaceAndTheLimit) {
  sc::LoadError error =
      Fails(R"({"name": "n", "expect": {"log": )" + std::string(100000, '[') + std::string(100000, ']') + "}}");
  std::string path = "expect.log";
  for (int i = 0; i < sc::kMaxDepth - 2; ++i) path += "[0]";  // the 65th opening bracket
  EXPECT_EQ(error.path, path);
  EXPECT_THAT(error.message, HasSubstr("nested deeper than 64"));
  EXPECT_THAT(Fails(std::string(sc::kMaxFileBytes + 1, ' ')).message, HasSubstr("larger than 4194304 bytes"));
  error = Fails(Edited(R"("camera": 0, "hal": [1, 0])", R"("camera": 0, "repeat": 100001)"));
  EXPECT_EQ(error.path, "steps[0].repeat");
  EXPECT_THAT(error.message, HasSubstr("expected a repeat count from 1 to 100000"));
  std::string steps;
  for (int i = 0; i < 3; ++i) steps += R"({"call": "OISRegisterProvider", "repeat": 100000},)";
  error = Fails(Edited(R"({"restart": true})", steps + R"({"restart": true})"));
  EXPECT_EQ(error.path, "steps[5]");  // 4 steps before, then 100000 each
  EXPECT_THAT(error.message, HasSubstr("more than 200000 steps"));
}

// Only a regular file is read: anything else is named for what it is, and a
// FIFO without a writer is refused at once rather than waited on.
TEST(ScenarioLoad, OnlyRegularFilesAreRead) {
  const std::string dir = ::testing::TempDir() + "scenario_load_test";
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  const auto load = [](const std::string& path) {
    sc::LoadError error;
    EXPECT_FALSE(sc::LoadScenarioFile(path, &error).has_value()) << path;
    return error.ToString();
  };
  EXPECT_EQ(load("/nonexistent/scenario.json"), "/nonexistent/scenario.json: cannot read: No such file or directory");
  EXPECT_EQ(load(dir), dir + ": is a directory");
  ASSERT_EQ(mkfifo((dir + "/fifo.json").c_str(), 0600), 0);
  EXPECT_THAT(load(dir + "/fifo.json"), HasSubstr("is not a regular file"));
  EXPECT_THAT(load("/dev/zero"), HasSubstr("is not a regular file"));
  std::ofstream(dir + "/big.json").close();
  std::filesystem::resize_file(dir + "/big.json", sc::kMaxFileBytes + 1);  // sparse: refused before it is read
  EXPECT_THAT(load(dir + "/big.json"), HasSubstr("larger than 4194304 bytes"));
  std::filesystem::remove_all(dir);
}

// Every prefix of a valid scenario, and every value swapped for one of each
// JSON type, is either loaded or rejected with a message; nothing throws.
TEST(ScenarioLoad, NoInputCrashesTheLoader) {
  const std::string valid = kValid;
  for (size_t length = 0; length < valid.size(); ++length) {
    sc::LoadError error;
    const auto scenario = sc::ParseScenario(valid.substr(0, length), "cut.json", &error);
    EXPECT_FALSE(scenario.has_value());
    EXPECT_FALSE(error.message.empty());
  }
  const std::vector<std::string> replacements = {"null",  "true", "-1", "1e999",  "18446744073709551615",
                                                 "\"x\"", "[]",   "{}", "[null]", "{\"a\": 1}"};
  size_t loaded = 0;
  for (size_t at = 0; at < valid.size(); ++at) {
    // Replace the value that starts after each ": " or "[" with each kind.
    if (valid[at] != ':' && valid[at] != '[') continue;
    size_t begin = at + 1;
    while (begin < valid.size() && valid[begin] == ' ') ++begin;
    size_t end = begin;
    int depth = 0;
    bool inString = false;
    for (; end < valid.size(); ++end) {
      const char c = valid[end];
      if (inString) {
        inString = c != '"';
        continue;
      }
      if (c == '"') inString = true;
      if (c == '[' || c == '{') ++depth;
      if (c == ']' || c == '}') {
        if (depth == 0) break;
        --depth;
      }
      if (c == ',' && depth == 0) break;
    }
    for (const std::string& replacement : replacements) {
      std::string text = valid;
      text.replace(begin, end - begin, replacement);
      sc::LoadError error;
      const auto scenario = sc::ParseScenario(text, "swapped.json", &error);
      if (scenario) {
        ++loaded;
      } else {
        EXPECT_FALSE(error.message.empty()) << text;
      }
    }
  }
  EXPECT_GT(loaded, 0u);
}

}  // namespace
