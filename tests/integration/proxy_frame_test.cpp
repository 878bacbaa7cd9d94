// The proxy frame, observed from outside through the loaded library: the
// previous function fetched at every call before the HAL call, and the hook
// stack popped exactly once, last, in shared mode only, with the proxy's own
// return address: the instruction after the HAL's call of the proxy. The call
// site here is written in assembly, so that it knows that address and records
// it before calling. On arm64 built with branch protection the proxy signs
// its return address on entry; the address popped must be the plain one,
// with the authentication bits stripped.
#include <cstdint>
#include <cstring>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/hal/simlenspipelinehal.h"
#include "sim/platform/simdevice.h"
#include "sim/platform/simshadowhook.h"
#include "tests/support/camera_process.h"

// The return address the call site recorded just before its call.
extern "C" __attribute__((visibility("hidden"), used)) void* g_callSiteReturn = nullptr;

// RecordingCallSite(a0, a1, a2, a3, a4, proxy): records the address of the
// instruction after its call, then calls proxy(a0, a1, a2, a3, a4) and returns
// what the proxy returned. A proxy with fewer parameters ignores the rest.
extern "C" uint64_t RecordingCallSite(const void* a0, const void* a1, const void* a2, const void* a3, uint64_t a4,
                                      const void* proxy);
extern "C" char RecordingCallSiteEnd[];

#if defined(__x86_64__)
asm(R"(
  .text
  .p2align 4
  .globl RecordingCallSite
  .hidden RecordingCallSite
  .type RecordingCallSite, @function
RecordingCallSite:
  push %rbp
  mov %rsp, %rbp
  lea 1f(%rip), %rax
  mov %rax, g_callSiteReturn(%rip)
  call *%r9
1:
  pop %rbp
  ret
  .globl RecordingCallSiteEnd
  .hidden RecordingCallSiteEnd
RecordingCallSiteEnd:
  .size RecordingCallSite, . - RecordingCallSite
)");
#elif defined(__aarch64__)
asm(R"(
  .text
  .p2align 2
  .globl RecordingCallSite
  .hidden RecordingCallSite
  .type RecordingCallSite, %function
RecordingCallSite:
  hint #34                      // bti c
  hint #25                      // paciasp
  stp x29, x30, [sp, #-16]!
  mov x29, sp
  adr x9, 1f
  adrp x10, g_callSiteReturn
  str x9, [x10, :lo12:g_callSiteReturn]
  blr x5
1:
  ldp x29, x30, [sp], #16
  hint #29                      // autiasp
  ret
  .globl RecordingCallSiteEnd
  .hidden RecordingCallSiteEnd
RecordingCallSiteEnd:
  .size RecordingCallSite, . - RecordingCallSite
)");
#else
#error "RecordingCallSite needs its assembly for this architecture"
#endif

namespace {

namespace hal = sim::hal;
using ::testing::ElementsAre;

class ProxyFrameTest : public test::CameraProcessTest {
 protected:
  // Calls `name` from the assembly call site; returns the one address popped.
  void* PoppedFor(const char* name, const void* a0, const void* a1, const void* a2 = nullptr, uint64_t a4 = 0) {
    const void* proxy = Proxy<void>(name);
    if (proxy == nullptr) return nullptr;
    sim::ClearHookStackCalls();
    g_callSiteReturn = nullptr;
    RecordingCallSite(a0, a1, a2, nullptr, a4, proxy);
    const std::vector<void*> popped = sim::PoppedAddresses();
    EXPECT_EQ(popped.size(), 1u) << name;
    return popped.empty() ? nullptr : popped.back();
  }
};

TEST_F(ProxyFrameTest, FetchesThePreviousFunctionFirstAndPopsOnceLastWithItsReturnAddress) {
  hal::ScriptResults("GetStaticCaps", {11, 12});
  hal::Object caps = hal::MakeStaticCaps(3);
  const void* proxy = Proxy<void>("GetStaticCapsHook");
  ASSERT_NE(proxy, nullptr);
  for (const int32_t expected : {11, 12}) {
    sim::ClearHookStackCalls();
    sim::ClearJournal();
    EXPECT_EQ(static_cast<int32_t>(RecordingCallSite(nullptr, caps.get(), nullptr, nullptr, 2, proxy)), expected);
    ASSERT_NE(g_callSiteReturn, nullptr);
    const std::vector<sim::HookStackCall> calls = sim::HookStackCalls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].kind, sim::HookStackCall::kGetPrevFunc);
    EXPECT_EQ(calls[0].address, proxy);
    EXPECT_EQ(calls[1].kind, sim::HookStackCall::kGetMode);
    EXPECT_EQ(calls[2].kind, sim::HookStackCall::kPopStack);
    EXPECT_EQ(calls[2].address, g_callSiteReturn);
    // What the platform saw: lookup, HAL call, log line, pop last.
    const std::vector<sim::Event> journal = sim::Journal();
    ASSERT_GE(journal.size(), 4u);
    EXPECT_EQ(journal.front().text.rfind("get_prev_func", 0), 0u);
    EXPECT_EQ(journal[1].text, "GetStaticCaps -> " + std::to_string(expected));
    EXPECT_EQ(journal.back().source, "shadowhook");
    EXPECT_EQ(journal.back().text.rfind("pop_stack", 0), 0u);
  }
  // It lies inside the call site, after its first instruction.
  EXPECT_GT(g_callSiteReturn, static_cast<void*>(reinterpret_cast<char*>(&RecordingCallSite)));
  EXPECT_LT(g_callSiteReturn, static_cast<void*>(RecordingCallSiteEnd));
}

// Proxies of several shapes (void and int results, leaving early, never
// calling the HAL, ids beyond the slot table) all pop their own return address.
TEST_F(ProxyFrameTest, EveryShapeOfProxyPopsItsOwnReturnAddress) {
  hal::CSLMessageObject message(0, 1);
  hal::CaptureRequestObject request;
  hal::ActuatorDriverDataObject actuator("a", 0x18);
  hal::Object caps = hal::MakeStaticCaps(99);
  std::vector<unsigned char> checksum(1024, 1);
  int session = 0;
  struct Case {
    const char* name;
    const void *a0, *a1, *a2;
    uint64_t a4;
  };
  const Case cases[] = {
      {"CSLMessageHandlerHook", &session, message.get(), nullptr, 0},
      {"ProcessCaptureRequestHook", nullptr, request.get(), nullptr, 0},
      {"ActuatorDataHook", nullptr, actuator.get(), nullptr, 0},
      {"OISRegisterProviderHook", nullptr, nullptr, nullptr, 0},
      {"ReadEEPROMDeviceHook", nullptr, nullptr, nullptr, 0},
      {"EEPROMVerifyChecksumHook", nullptr, checksum.data(), reinterpret_cast<const void*>(checksum.size()), 0},
      {"GetStaticCapsHook", nullptr, caps.get(), nullptr, 16},
  };
  for (const Case& c : cases) {
    void* popped = PoppedFor(c.name, c.a0, c.a1, c.a2, c.a4);
    EXPECT_EQ(popped, g_callSiteReturn) << c.name;
    EXPECT_NE(popped, nullptr) << c.name;
  }
}

TEST_F(ProxyFrameTest, OtherModesNeverPop) {
  hal::Object caps = hal::MakeStaticCaps(1);
  for (int mode : {1, 2, -1}) {
    sim::SetHookMode(mode);
    hal::ScriptResults("GetStaticCaps", {-3});
    EXPECT_EQ(static_cast<int32_t>(
                  RecordingCallSite(nullptr, caps.get(), nullptr, nullptr, 1, Proxy<void>("GetStaticCapsHook"))),
              -3)
        << mode;
  }
  EXPECT_TRUE(sim::PoppedAddresses().empty());
  EXPECT_EQ(hal::CallCount("GetStaticCaps"), 3);
}

#if defined(__aarch64__)

constexpr uint32_t kPaciasp = 0xd503233f;
constexpr uint32_t kPacibsp = 0xd503237f;
constexpr uint64_t kAddressBits = (uint64_t{1} << 48) - 1;

// Signs `pointer` with the A key (PACIA1716, a hint: a no-op on a CPU
// without pointer authentication).
uint64_t SignWithKeyA(uint64_t pointer) {
  register uint64_t x17 asm("x17") = pointer;
  register uint64_t x16 asm("x16") = 0x1234;
  asm volatile("hint #8" : "+r"(x17) : "r"(x16));
  return x17;
}

bool PointerAuthenticationActive() { return SignWithKeyA(0x0000aaaabbbb0000) != 0x0000aaaabbbb0000; }

// The proxy's prologue signs the return address it keeps on the stack.
TEST_F(ProxyFrameTest, ProxySignsItsReturnAddressOnEntry) {
  const auto* code = static_cast<const uint32_t*>(Proxy<void>("GetStaticCapsHook"));
  ASSERT_NE(code, nullptr);
  bool signs = false;
  for (int i = 0; i < 4; ++i) {
    uint32_t word;
    std::memcpy(&word, code + i, sizeof(word));
    signs = signs || word == kPaciasp || word == kPacibsp;
  }
  EXPECT_TRUE(signs) << "the library is not built with -mbranch-protection";
}

TEST_F(ProxyFrameTest, PoppedAddressCarriesNoAuthenticationBits) {
  if (!PointerAuthenticationActive()) GTEST_SKIP() << "this CPU does not authenticate pointers";
  // What a signed return address looks like here: the same address with a
  // code in its top bits.
  const auto inCallSite = reinterpret_cast<uint64_t>(RecordingCallSiteEnd) - 4;
  ASSERT_NE(SignWithKeyA(inCallSite) & ~kAddressBits, 0u);

  hal::Object caps = hal::MakeStaticCaps(1);
  const auto popped = reinterpret_cast<uint64_t>(PoppedFor("GetStaticCapsHook", nullptr, caps.get()));
  EXPECT_EQ(popped & ~kAddressBits, 0u) << std::hex << popped;
  EXPECT_EQ(popped, reinterpret_cast<uint64_t>(g_callSiteReturn));
}

#endif  // __aarch64__

}  // namespace
