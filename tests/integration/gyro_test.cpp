// PostGyroDataHook through the loaded library: one sample per batch, chosen
// with the C library's rand, is moved back by 55,258,907 ns before the HAL
// sees the batch, and every sample is logged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>

#include "simlenspipelinehal.h"
#include "support/camera_process.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
namespace hal = sim::hal;

constexpr int64_t kShift = 55258907;

class GyroDataTest : public test::CameraProcessTest {
 protected:
  // Runs the proxy on a batch with these timestamps, rand seeded with
  // `seed`; returns the timestamps the HAL saw and checks the batch itself.
  std::vector<int64_t> Run(const std::vector<int64_t>& timestamps, unsigned seed = 1, int type = 1) {
    hal::SensorEventBatch batch(timestamps);
    std::srand(seed);
    Proxy<CamxResult(void*, CamX::NCSSensorType, std::vector<sensors_event_t*>&)>("PostGyroDataHook")(
        nullptr, static_cast<CamX::NCSSensorType>(type), batch.samples());
    EXPECT_EQ(hal::LastGyroBatchSeen().type, type);
    EXPECT_EQ(hal::LastGyroBatchSeen().timestamps, batch.timestamps());
    return batch.timestamps();
  }

  // The log lines of a batch that left as `after`, `chosen` being moved.
  static std::vector<std::string> Lines(const std::vector<int64_t>& after, size_t chosen) {
    std::vector<std::string> lines;
    for (size_t i = 0; i < after.size(); ++i) {
      if (i == chosen) lines.push_back("modify timestamp to: " + std::to_string(after[i]));
      lines.push_back("rSensorDataList[" + std::to_string(i) + "] timestamp: " + std::to_string(after[i]));
    }
    return lines;
  }
};

TEST_F(GyroDataTest, SingleSampleAboveTheShiftIsMoved) {
  EXPECT_THAT(Run({1000000000}), ElementsAre(944741093));
  EXPECT_THAT(test::HookMessages(), ElementsAreArray(Lines({944741093}, 0)));
  EXPECT_THAT(Run({kShift + 1}, 1, 2), ElementsAre(1));  // any sensor type
  EXPECT_THAT(test::NotifiedHooks(), ElementsAre("PostGyroDataHook"));
}

TEST_F(GyroDataTest, TimestampsAtOrBelowTheShiftAreKeptButStillLogged) {
  for (int64_t timestamp : {kShift, kShift - 1, int64_t{0}, int64_t{-5}, INT64_MIN}) {
    sim::ClearLog();
    EXPECT_THAT(Run({timestamp}), ElementsAre(timestamp));
    EXPECT_THAT(test::HookMessages(), ElementsAreArray(Lines({timestamp}, 0)));
  }
}

TEST_F(GyroDataTest, ExactlyTheSampleRandChoosesIsMovedAndAllAreLogged) {
  const std::vector<int64_t> before = {100000000, 200000000, 300000000, 400000000,
                                       500000000, 600000000, 700000000, 800000000};
  std::set<size_t> chosenIndexes;
  for (unsigned seed = 1; seed <= 40; ++seed) {
    std::srand(seed);  // replays the draw the hook makes
    const size_t chosen = static_cast<size_t>(std::rand()) % before.size();
    chosenIndexes.insert(chosen);
    std::vector<int64_t> after = before;
    after[chosen] -= kShift;
    sim::ClearLog();
    EXPECT_EQ(Run(before, seed), after) << "seed " << seed;
    EXPECT_THAT(test::HookMessages(), ElementsAreArray(Lines(after, chosen))) << "seed " << seed;
  }
  EXPECT_GE(chosenIndexes.size(), 6u);  // the seeds reached most indexes
  EXPECT_THAT(test::NotifiedHooks(), ElementsAre("PostGyroDataHook"));
}

TEST_F(GyroDataTest, EmptyBatchOnlyReachesTheHal) {
  hal::ScriptResults("PostGyroData", {2});
  hal::SensorEventBatch batch({});
  EXPECT_EQ(Proxy<CamxResult(void*, CamX::NCSSensorType, std::vector<sensors_event_t*>&)>("PostGyroDataHook")(
                nullptr, CamX::NCSSensorType{1}, batch.samples()),
            2);
  EXPECT_EQ(hal::CallCount("PostGyroData"), 1);
  EXPECT_THAT(test::HookMessages(), IsEmpty());
  EXPECT_THAT(test::NotifiedHooks(), IsEmpty());
}

}  // namespace
