// The bundled scenarios against the catalogue: each loads, each has its
// golden transcript, its call-sequence seed, its scenario-loader seed and its
// row in the scenarios' README, and every function a scenario can call is called by at least one of
// them and has its arguments in that README, so that a new proxy without a scenario (or a scenario without its
// golden) fails here.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "sim/harness/catalogue.h"
#include "sim/scenario/scenario.h"

namespace {

namespace fs = std::filesystem;

// Every "call" of a scenario, wherever a step or a repeated block holds one.
void CollectCalls(const nlohmann::json& node, std::set<std::string>* calls) {
  if (node.is_object() && node.contains("call") && node["call"].is_string()) calls->insert(node["call"]);
  if (node.is_structured()) {
    for (const nlohmann::json& child : node) CollectCalls(child, calls);
  }
}

TEST(BundledScenarios, LoadHaveGoldensAndSeedsAndCallEveryCatalogueEntry) {
  std::ifstream readmeFile(REMEDIUM_SCENARIO_DIR "/README.md");
  const std::string readme((std::istreambuf_iterator<char>(readmeFile)), std::istreambuf_iterator<char>());
  std::set<std::string> called;
  size_t scenarios = 0;
  for (const fs::directory_entry& file : fs::directory_iterator(REMEDIUM_SCENARIO_DIR)) {
    if (file.path().extension() != ".json") continue;
    ++scenarios;
    const std::string name = file.path().stem();
    sim::scenario::LoadError error;
    EXPECT_TRUE(sim::scenario::LoadScenarioFile(file.path().string(), &error).has_value()) << error.ToString();
    EXPECT_TRUE(fs::is_regular_file(fs::path(REMEDIUM_GOLDEN_DIR) / (name + ".txt")))
        << name << ": no golden transcript (cmake -DUPDATE=1 ... -P tests/golden/compare.cmake writes it)";
    EXPECT_TRUE(fs::exists(fs::path(REMEDIUM_SEED_DIR) / name))
        << name << ": no call-sequence seed (remedium-seq seed writes it)";
    // The loader fuzzer's seed is the scenario itself, through a link, so it cannot drift.
    const fs::path loaderSeed = fs::path(REMEDIUM_SEED_DIR).parent_path() / "fuzz_scenario_loader" / (name + ".json");
    std::error_code linked;
    EXPECT_TRUE(fs::is_symlink(loaderSeed) && fs::equivalent(loaderSeed, file.path(), linked))
        << name << ": no scenario-loader seed (ln -s ../../../sim/scenarios/" << name << ".json " << loaderSeed.string()
        << ")";
    EXPECT_NE(readme.find("| `" + name + ".json` |"), std::string::npos) << name << ": not in the README's table";
    std::ifstream in(file.path());
    CollectCalls(nlohmann::json::parse(in, nullptr, false), &called);
  }
  EXPECT_GT(scenarios, 0u);
  for (const sim::CatalogueEntry& entry : sim::Catalogue()) {
    if (entry.call == nullptr) continue;
    EXPECT_TRUE(called.count(entry.call)) << entry.call << " is called by no bundled scenario";
    EXPECT_NE(readme.find(std::string("`") + entry.call + "`"), std::string::npos)
        << entry.call << ": no arguments row";
  }
}

}  // namespace
