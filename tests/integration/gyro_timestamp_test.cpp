// PostGyroDataHook through the loaded library: one sample per batch, chosen
// with the C library's rand, is moved back by 55,258,907 ns before the HAL
// sees the batch, and every sample is logged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <set>

#include "simlenspipelinehal.h"
#include "support/camera_process.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
namespace hal = sim::hal;

constexpr int64_t kShift = 55258907;

class GyroTimestampTest : public test::CameraProcessTest {
 protected:
  // Runs the proxy on a batch with rand seeded with `seed`; returns the
  // timestamps the HAL saw and checks its log lines, `chosen` being moved.
  std::vector<int64_t> Run(const std::vector<int64_t>& timestamps, unsigned seed, size_t chosen, int type = 1) {
    hal::SensorEventBatch batch(timestamps);
    sim::ClearLog();
    std::srand(seed);
    Proxy<CamxResult(void*, CamX::NCSSensorType, std::vector<sensors_event_t*>&)>("PostGyroDataHook")(
        nullptr, static_cast<CamX::NCSSensorType>(type), batch.samples());
    EXPECT_EQ(hal::LastGyroBatchSeen().type, type);
    EXPECT_EQ(hal::LastGyroBatchSeen().timestamps, batch.timestamps());
    std::vector<std::string> lines;
    for (size_t i = 0; i < timestamps.size(); ++i) {
      const std::string after = std::to_string(batch.timestamps()[i]);
      if (i == chosen) lines.push_back("modify timestamp to: " + after);
      lines.push_back("rSensorDataList[" + std::to_string(i) + "] timestamp: " + after);
    }
    EXPECT_THAT(test::HookMessages(), ElementsAreArray(lines));
    return batch.timestamps();
  }
};

TEST_F(GyroTimestampTest, OnlyASampleAboveTheShiftIsMovedAndAllAreLogged) {
  EXPECT_THAT(Run({1000000000}, 1, 0), ElementsAre(944741093));
  EXPECT_THAT(Run({kShift + 1}, 1, 0, 2), ElementsAre(1));  // any sensor type
  for (int64_t timestamp : {kShift, kShift - 1, int64_t{0}, int64_t{-5}, INT64_MIN}) {
    EXPECT_THAT(Run({timestamp}, 1, 0), ElementsAre(timestamp));
  }
  EXPECT_THAT(test::NotifiedHooks(), ElementsAre("PostGyroDataHook"));
}

TEST_F(GyroTimestampTest, ExactlyTheSampleRandChoosesIsMoved) {
  const std::vector<int64_t> before = {100000000, 200000000, 300000000, 400000000,
                                       500000000, 600000000, 700000000, 800000000};
  std::set<size_t> chosenIndexes;
  for (unsigned seed = 1; seed <= 40; ++seed) {
    std::srand(seed);  // replays the draw the hook makes
    const size_t chosen = static_cast<size_t>(std::rand()) % before.size();
    chosenIndexes.insert(chosen);
    std::vector<int64_t> after = before;
    after[chosen] -= kShift;
    EXPECT_EQ(Run(before, seed, chosen), after) << "seed " << seed;
  }
  EXPECT_GE(chosenIndexes.size(), 6u);  // the seeds reached most indexes
}

TEST_F(GyroTimestampTest, EmptyBatchOnlyReachesTheHal) {
  hal::ScriptResults("PostGyroData", {2});
  hal::SensorEventBatch batch({});
  EXPECT_EQ(Proxy<CamxResult(void*, CamX::NCSSensorType, std::vector<sensors_event_t*>&)>("PostGyroDataHook")(
                nullptr, CamX::NCSSensorType{1}, batch.samples()),
            2);
  EXPECT_THAT(test::HookMessages(), IsEmpty());
  EXPECT_THAT(test::NotifiedHooks(), IsEmpty());
}

}  // namespace
