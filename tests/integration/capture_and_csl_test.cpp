// The pipeline proxies through the loaded library: the CSL message hook's
// conversion of the frame the core names into an error message, and the
// capture request hook's deliberate abort on the record-control tag.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include "simlenspipelinehal.h"
#include "simshadowhook.h"
#include "support/camera_process.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
namespace fw = sim::framework;
namespace hal = sim::hal;

int g_session = 0;  // the CSL handler's user data

class CSLMessageTest : public test::CameraProcessTest {
 protected:
  // Hands the proxy a frame message carrying `value`; true when the HAL got
  // it converted (kind 1, word 5 at offset 8, 8192 at offset 44).
  bool Converted(uint64_t value, uint32_t type = 0, void* userData = &g_session) {
    hal::CSLMessageObject message(type, value);
    Proxy<void(void*, CSLMessage*)>("CSLMessageHandlerHook")(userData, message.get());
    const hal::CSLMessageSeen seen = hal::LastCSLMessageSeen();
    EXPECT_EQ(seen.message, message.get());
    return seen.type == 1 && seen.errorCode == 5 && seen.errorWord == 8192 && message.type() == 1;
  }
};

TEST_F(CSLMessageTest, EveryFrameMessageOfTheNamedValueIsConvertedOneReport) {
  EXPECT_FALSE(Converted(42));  // no argument
  fw::SetHookArguments("CSLMessageHandler", {"42", "43"});
  EXPECT_TRUE(Converted(42));
  EXPECT_TRUE(Converted(42));
  EXPECT_FALSE(Converted(43));           // only the first argument counts
  EXPECT_FALSE(Converted(42, 2));        // not a frame message
  EXPECT_FALSE(Converted(0x10000002A));  // the whole 64-bit value is compared
  EXPECT_FALSE(Converted(42, 0, nullptr));
  for (const char* argument : {"0", "frame", ""}) {
    fw::SetHookArguments("CSLMessageHandler", {argument});
    EXPECT_FALSE(Converted(0)) << argument;
  }
  Proxy<void(void*, CSLMessage*)>("CSLMessageHandlerHook")(&g_session, nullptr);  // reaches the HAL as it is
  EXPECT_EQ(hal::LastCSLMessageSeen().message, nullptr);
  EXPECT_THAT(test::NotifiedHooks(), ElementsAre("CSLMessageHandlerHook"));
  EXPECT_THAT(test::HookMessages(), IsEmpty());

  // Only the low half of the frame value is overwritten.
  fw::SetHookArguments("CSLMessageHandler", {"21474836522"});  // 0x5'0000'002A
  hal::CSLMessageObject message(0, 0x50000002AULL);
  Proxy<void(void*, CSLMessage*)>("CSLMessageHandlerHook")(&g_session, message.get());
  EXPECT_EQ(message.frameValue(), 0x500000005ULL);
  EXPECT_EQ(message.errorWord(), 8192u);
}

TEST_F(CSLMessageTest, WithoutCoreEveryMessagePasses) {
  fw::RemoveCore();
  fw::SetHookArguments("CSLMessageHandler", {"42"});
  EXPECT_FALSE(Converted(42));
}

// While installed, SIGABRT is counted instead of ending the process.
volatile sig_atomic_t g_aborts = 0;
int g_abortsWhenHalRan = -1;

class AbortCounter {
 public:
  AbortCounter() {
    g_aborts = 0;
    struct sigaction action = {};
    action.sa_handler = [](int) { g_aborts = g_aborts + 1; };
    sigemptyset(&action.sa_mask);
    sigaction(SIGABRT, &action, &m_previous);
  }
  ~AbortCounter() { sigaction(SIGABRT, &m_previous, nullptr); }

 private:
  struct sigaction m_previous = {};
};

class CaptureRequestTest : public test::CameraProcessTest {
 protected:
  void SetUp() override {
    test::CameraProcessTest::SetUp();
    proxy_ = Proxy<CamxResult(void*, CamX::Camera3CaptureRequest*)>("ProcessCaptureRequestHook");
    // The HAL's function, noting how many aborts came before it ran.
    sim::RegisterHook(reinterpret_cast<void*>(proxy_),
                      reinterpret_cast<void*>(+[](void* pThis, CamX::Camera3CaptureRequest* pRequest) {
                        g_abortsWhenHalRan = g_aborts;
                        return hal::ProcessCaptureRequest(pThis, pRequest);
                      }));
  }
  CamxResult (*proxy_)(void*, CamX::Camera3CaptureRequest*) = nullptr;
};

TEST_F(CaptureRequestTest, RecordControlOneAbortsBeforeTheHal) {
  hal::RegisterRecordControlTag();
  hal::CaptureRequestObject request;
  request.SetRecordControl(1);
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        sim::RegisterHook(reinterpret_cast<void*>(proxy_),
                          reinterpret_cast<void*>(+[](void*, CamX::Camera3CaptureRequest*) -> CamxResult {
                            (void)!write(STDERR_FILENO, "HAL ran\n", 8);
                            return 0;
                          }));
        proxy_(nullptr, request.get());
        _exit(0);
      },
      ::testing::KilledBySignal(SIGABRT), Not(HasSubstr("HAL ran")));

  // When an abort handler returns, the request goes on to the HAL.
  hal::ScriptResults("ProcessCaptureRequest", {-3});
  AbortCounter counter;
  EXPECT_EQ(proxy_(nullptr, request.get()), -3);
  EXPECT_EQ(g_aborts, 1);
  EXPECT_EQ(g_abortsWhenHalRan, 1);
  EXPECT_EQ(sim::PoppedAddresses().size(), 1u);
}

TEST_F(CaptureRequestTest, OtherValuesAndRequestsPassUnchanged) {
  hal::RegisterRecordControlTag();
  hal::SetDefaultResult("ProcessCaptureRequest", 7);
  AbortCounter counter;
  hal::CaptureRequestObject zero, two, secondByte, noValue, otherTags, noSettings;
  zero.SetRecordControl(0);
  two.SetRecordControl(2);
  secondByte.SetBytes(hal::kRecordControlTagLocation, {0, 1});
  noValue.SetBytes(hal::kRecordControlTagLocation, {});
  otherTags.SetBytes(0x10000, {1}).SetBytes(0, {1});
  for (const hal::CaptureRequestObject* request : {&zero, &two, &secondByte, &noValue, &otherTags, &noSettings}) {
    EXPECT_EQ(proxy_(nullptr, request->get()), 7);
    EXPECT_EQ(hal::LastCaptureRequestSeen(), request->get());
  }
  EXPECT_EQ(proxy_(nullptr, nullptr), 7);
  EXPECT_EQ(g_aborts, 0);
  EXPECT_THAT(test::HookMessages(), IsEmpty());
  EXPECT_THAT(fw::CoreArgumentQueries(), IsEmpty());
}

// The tag is resolved at every request; while unknown, tag 0 is looked at.
TEST_F(CaptureRequestTest, TagIsResolvedAtEveryRequestUnknownMeansTagZero) {
  AbortCounter counter;
  hal::CaptureRequestObject tagged, tagZeroOne, tagZeroTwo;
  tagged.SetRecordControl(1);
  tagZeroOne.SetBytes(0, {1});
  tagZeroTwo.SetBytes(0, {2});
  proxy_(nullptr, tagged.get());
  proxy_(nullptr, tagZeroTwo.get());
  EXPECT_EQ(g_aborts, 0);
  proxy_(nullptr, tagZeroOne.get());
  EXPECT_EQ(g_aborts, 1);
  hal::RegisterRecordControlTag();
  proxy_(nullptr, tagged.get());
  proxy_(nullptr, tagZeroOne.get());
  EXPECT_EQ(g_aborts, 2);
}

}  // namespace
