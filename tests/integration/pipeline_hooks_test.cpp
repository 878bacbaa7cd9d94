// The capture request and CSL message hooks through the loaded library, for
// what the bundled scenarios cannot show: the abort comes before the HAL sees
// the request, request metadata the scenarios cannot build passes unchanged,
// and the CSL conversion overwrites only the low half of the frame value.
#include <signal.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/hal/simlenspipelinehal.h"
#include "sim/platform/simshadowhook.h"
#include "tests/support/camera_process.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;
namespace fw = sim::framework;
namespace hal = sim::hal;

using CaptureRequestFn = CamxResult(void*, CamX::Camera3CaptureRequest*);

class PipelineHooksTest : public test::CameraProcessTest {
 protected:
  void SetUp() override {
    test::CameraProcessTest::SetUp();
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    hal::RegisterRecordControlTag();
    m_capture = Proxy<CaptureRequestFn>("ProcessCaptureRequestHook");
  }
  CaptureRequestFn* m_capture = nullptr;
};

TEST_F(PipelineHooksTest, RecordControlOneAbortsBeforeTheHal) {
  hal::CaptureRequestObject request;
  request.SetRecordControl(1);
  sim::RegisterHook(reinterpret_cast<void*>(m_capture),
                    reinterpret_cast<void*>(+[](void*, CamX::Camera3CaptureRequest*) -> CamxResult {
                      (void)!write(STDERR_FILENO, "HAL ran\n", 8);
                      return 0;
                    }));
  EXPECT_EXIT(
      {
        m_capture(nullptr, request.get());
        _exit(0);
      },
      ::testing::KilledBySignal(SIGABRT), Not(HasSubstr("HAL ran")));
}

// A one in the second byte of the tag, a tag without a value, ones under
// other tags and no request at all: no abort, the HAL's result unchanged.
TEST_F(PipelineHooksTest, OtherRequestMetadataPassesUnchanged) {
  hal::SetDefaultResult("ProcessCaptureRequest", 7);
  hal::CaptureRequestObject secondByte, noValue, otherTags;
  secondByte.SetBytes(hal::kRecordControlTagLocation, {0, 1});
  noValue.SetBytes(hal::kRecordControlTagLocation, {});
  otherTags.SetBytes(0x10000, {1});
  EXPECT_EXIT(
      {
        bool passed = m_capture(nullptr, nullptr) == 7;
        for (const hal::CaptureRequestObject* request : {&secondByte, &noValue, &otherTags}) {
          passed = passed && m_capture(nullptr, request->get()) == 7 && hal::LastCaptureRequestSeen() == request->get();
        }
        _exit(passed ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(PipelineHooksTest, CSLConversionOverwritesOnlyTheLowHalfOfTheFrameValue) {
  fw::SetHookArguments("CSLMessageHandler", {"21474836522"});  // 0x5'0000'002A
  hal::CSLMessageObject message(0, 0x50000002AULL);
  int session = 0;
  Proxy<void(void*, CSLMessage*)>("CSLMessageHandlerHook")(&session, message.get());
  EXPECT_EQ(message.type(), 1u);
  EXPECT_EQ(message.frameValue(), 0x500000005ULL);
  EXPECT_EQ(message.errorWord(), 8192u);
}

}  // namespace
