// The proxy frame, observed from outside through the loaded library: the
// previous function fetched before the HAL call, and the hook stack popped
// exactly once, last, with the proxy's return address, in shared mode only.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "harness.h"
#include "simdevice.h"
#include "simframework.h"
#include "simhal.h"
#include "simshadowhook.h"
#include "support/camera_process.h"

namespace {

using GetStaticCapsFn = CamxResult(void*, CamX::SensorModuleStaticCaps*, CSLSensorCapability*,
                                   CamX::TuningDataManager*, unsigned int);

GetStaticCapsFn* g_proxy = nullptr;

// The HAL's call site of the proxy; the pop must name an address inside it.
extern "C" __attribute__((noinline)) CamxResult HalCallSite(unsigned int cameraId, uint32_t slotId) {
  sim::hal::Object caps = sim::hal::MakeStaticCaps(slotId);
  const CamxResult result =
      g_proxy(nullptr, static_cast<CamX::SensorModuleStaticCaps*>(caps.get()), nullptr, nullptr, cameraId);
  asm volatile("" ::: "memory");  // keep the call a call, not a tail call
  return result;
}

class ProxyFrameTest : public test::CameraProcessTest {
 protected:
  void SetUp() override {
    CameraProcessTest::SetUp();
    if (HasFatalFailure()) return;
    g_proxy = Proxy<GetStaticCapsFn>("GetStaticCapsHook");
    ASSERT_NE(g_proxy, nullptr);
    sim::ClearHookStackCalls();
    sim::ClearJournal();
  }
};

TEST_F(ProxyFrameTest, SharedModePopsOnceLastWithTheProxysReturnAddress) {
  sim::hal::ScriptResults("GetStaticCaps", {7});
  EXPECT_EQ(HalCallSite(2, 1), 7);

  const std::vector<sim::HookStackCall> calls = sim::HookStackCalls();
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_EQ(calls[0].kind, sim::HookStackCall::kGetPrevFunc);
  EXPECT_EQ(calls[0].address, reinterpret_cast<void*>(g_proxy));
  EXPECT_EQ(calls[1].kind, sim::HookStackCall::kGetMode);
  EXPECT_EQ(calls[2].kind, sim::HookStackCall::kPopStack);
  const auto* site = reinterpret_cast<const char*>(&HalCallSite);
  const auto* popped = static_cast<const char*>(calls[2].address);
  EXPECT_GT(popped, site);
  EXPECT_LT(popped, site + 512);

  // Order of what the platform saw: lookup, HAL call, log line, pop last.
  const std::vector<sim::Event> journal = sim::Journal();
  ASSERT_GE(journal.size(), 4u);
  EXPECT_EQ(journal.front().text.rfind("get_prev_func", 0), 0u);
  EXPECT_EQ(journal[1].text, "GetStaticCaps -> 7");
  EXPECT_EQ(journal.back().source, "shadowhook");
  EXPECT_EQ(journal.back().text.rfind("pop_stack", 0), 0u);
}

TEST_F(ProxyFrameTest, OtherModesNeverPop) {
  for (int mode : {1, 2, -1}) {
    sim::SetHookMode(mode);
    sim::hal::ScriptResults("GetStaticCaps", {-3});
    EXPECT_EQ(HalCallSite(1, 1), -3) << mode;
  }
  EXPECT_TRUE(sim::PoppedAddresses().empty());
  EXPECT_EQ(sim::hal::CallCount("GetStaticCaps"), 3);
}

TEST_F(ProxyFrameTest, OutOfRangeIdsStillPopAndReturn) {
  EXPECT_EQ(HalCallSite(16, 3), 0);
  EXPECT_EQ(HalCallSite(0xFFFFFFFF, 99), 0);
  EXPECT_EQ(sim::PoppedAddresses().size(), 2u);
}

TEST_F(ProxyFrameTest, PreviousFunctionIsFetchedAtEveryCall) {
  HalCallSite(0, 0);
  HalCallSite(0, 0);
  int lookups = 0;
  for (const sim::HookStackCall& call : sim::HookStackCalls()) lookups += call.kind == sim::HookStackCall::kGetPrevFunc;
  EXPECT_EQ(lookups, 2);
}

// Ending the camera process must really unload the library, so that the next
// process starts with fresh statics.
TEST_F(ProxyFrameTest, StoppingTheProcessUnloadsTheLibrary) {
  HalCallSite(0, 0);
  phone_.StopCameraProcess();
  g_proxy = nullptr;
  void* stillLoaded = dlopen(sim::HookLibraryPath().c_str(), RTLD_NOW | RTLD_NOLOAD);
  EXPECT_EQ(stillLoaded, nullptr);
  if (stillLoaded != nullptr) dlclose(stillLoaded);
}

}  // namespace
