// PostGyroDataHook: before a batch of motion-sensor samples reaches the HAL,
// moves the timestamp of one randomly chosen sample back by a fixed amount.
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <vector>

#include <hardware/sensors.h>

#include "client/interface/remediumclient.h"
#include "hook/src/globals.h"
#include "hook/src/hook.h"
#include "hook/src/hooklogsites.h"
#include "hook/src/proxyframe.h"

namespace CamX {

namespace {

// About 55.26 ms; a timestamp not above it is kept as it is.
constexpr int64_t kGyroTimestampShiftNs = 55258907;
static_assert(kGyroTimestampShiftNs == 0x034B2F1B);

static_assert(offsetof(sensors_event_t, timestamp) == 16, "the sample's timestamp sits at byte 16");

}  // namespace

CamxResult PostGyroDataHook(void* pThis, NCSSensorType type, std::vector<sensors_event_t*>& samples) noexcept {
  CAMX_PROXY_FRAME(frame);
  const size_t count = samples.size();
  // Samples are indexed with a signed 32-bit count; no real batch comes near.
  if (count > static_cast<size_t>(INT_MAX)) __builtin_trap();
  // The process-wide C generator, never seeded here; every sensor type alike.
  const size_t chosen = count < 2 ? 0 : static_cast<size_t>(rand()) % count;
  for (int i = 0; static_cast<size_t>(i) < count; ++i) {
    sensors_event_t* sample = samples[static_cast<size_t>(i)];
    if (static_cast<size_t>(i) == chosen) {
      int64_t timestamp = sample->timestamp;
      if (timestamp > kGyroTimestampShiftNs) timestamp -= kGyroTimestampShiftNs;
      sample->timestamp = timestamp;
      // Logged also when the timestamp was too small to move.
      REMEDIUM_LOG(GyroTimestampModified, static_cast<long long>(timestamp));
      NotifyHookOnce(hookNotified.postGyroData, "PostGyroDataHook");
    }
    REMEDIUM_LOG(GyroSampleTimestamp, i, static_cast<long long>(sample->timestamp));
  }
  return frame.CallPrevious(&PostGyroDataHook, pThis, type, samples);
}

}  // namespace CamX
