// The address a proxy hands to shadowhook_pop_stack is exactly its own return
// address: the instruction after the HAL's call of the proxy. The call site
// here is written in assembly, so that it knows that address and records it
// before calling. On arm64 built with branch protection the proxy signs its
// return address on entry; the address popped must be the plain one, with
// the authentication bits stripped.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "harness.h"
#include "simframework.h"
#include "simhal.h"
#include "simlenspipelinehal.h"
#include "simshadowhook.h"

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

namespace fw = sim::framework;
namespace hal = sim::hal;

class ReturnAddressTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fw::InstallCore();
    std::string error;
    library_ = phone_.StartCameraProcess(&error);
    ASSERT_NE(library_, nullptr) << error;
  }

  const void* Proxy(const char* name) const {
    const sim::CatalogueEntry* entry = sim::FindCatalogueEntry(name);
    EXPECT_NE(entry, nullptr) << name;
    return entry == nullptr ? nullptr : library_->Symbol(entry->mangled);
  }

  // Calls `name` from the assembly call site; returns the one address popped.
  void* PoppedFor(const char* name, const void* a0, const void* a1, const void* a2 = nullptr,
                  const void* a3 = nullptr, uint64_t a4 = 0) {
    const void* proxy = Proxy(name);
    if (proxy == nullptr) return nullptr;
    sim::ClearHookStackCalls();
    g_callSiteReturn = nullptr;
    RecordingCallSite(a0, a1, a2, a3, a4, proxy);
    const std::vector<void*> popped = sim::PoppedAddresses();
    EXPECT_EQ(popped.size(), 1u) << name;
    return popped.empty() ? nullptr : popped.back();
  }

  sim::Phone phone_;
  sim::HookLibrary* library_ = nullptr;
};

TEST_F(ReturnAddressTest, PopsTheInstructionAfterTheHalsCall) {
  hal::ScriptResults("GetStaticCaps", {11});
  hal::Object caps = hal::MakeStaticCaps(3);
  const void* proxy = Proxy("GetStaticCapsHook");
  ASSERT_NE(proxy, nullptr);
  sim::ClearHookStackCalls();
  EXPECT_EQ(static_cast<int32_t>(RecordingCallSite(nullptr, caps.get(), nullptr, nullptr, 2, proxy)), 11);
  ASSERT_NE(g_callSiteReturn, nullptr);
  EXPECT_THAT(sim::PoppedAddresses(), ::testing::ElementsAre(g_callSiteReturn));
  // It lies inside the call site, after its first instruction.
  EXPECT_GT(g_callSiteReturn, static_cast<void*>(reinterpret_cast<char*>(&RecordingCallSite)));
  EXPECT_LT(g_callSiteReturn, static_cast<void*>(RecordingCallSiteEnd));
}

// Proxies of several shapes (void and int results, leaving early, never
// calling the HAL) all pop their own return address.
TEST_F(ReturnAddressTest, EveryShapeOfProxyPopsItsOwnReturnAddress) {
  hal::CSLMessageObject message(0, 1);
  hal::CaptureRequestObject request;
  hal::ActuatorDriverDataObject actuator("a", 0x18);
  std::vector<unsigned char> checksum(1024, 1);
  int session = 0;
  struct Case {
    const char* name;
    const void* a0;
    const void* a1;
    const void* a2;
  };
  const Case cases[] = {
      {"CSLMessageHandlerHook", &session, message.get(), nullptr},
      {"ProcessCaptureRequestHook", nullptr, request.get(), nullptr},
      {"ActuatorDataHook", nullptr, actuator.get(), nullptr},
      {"OISRegisterProviderHook", nullptr, nullptr, nullptr},
      {"ReadEEPROMDeviceHook", nullptr, nullptr, nullptr},
      {"ReadLensPositionDataHook", nullptr, nullptr, nullptr},
      {"EEPROMVerifyChecksumHook", nullptr, checksum.data(), reinterpret_cast<const void*>(checksum.size())},
  };
  for (const Case& c : cases) {
    void* popped = PoppedFor(c.name, c.a0, c.a1, c.a2);
    EXPECT_EQ(popped, g_callSiteReturn) << c.name;
    EXPECT_NE(popped, nullptr) << c.name;
  }
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
TEST_F(ReturnAddressTest, ProxySignsItsReturnAddressOnEntry) {
  const auto* code = static_cast<const uint32_t*>(Proxy("GetStaticCapsHook"));
  ASSERT_NE(code, nullptr);
  bool signs = false;
  for (int i = 0; i < 4; ++i) {
    uint32_t word;
    std::memcpy(&word, code + i, sizeof(word));
    signs = signs || word == kPaciasp || word == kPacibsp;
  }
  EXPECT_TRUE(signs) << "the library is not built with -mbranch-protection";
}

TEST_F(ReturnAddressTest, PoppedAddressCarriesNoAuthenticationBits) {
  if (!PointerAuthenticationActive()) GTEST_SKIP() << "this CPU does not authenticate pointers";
  // What a signed return address looks like here: the same address with a
  // code in its top bits.
  const auto inCallSite = reinterpret_cast<uint64_t>(RecordingCallSiteEnd) - 4;
  ASSERT_NE(SignWithKeyA(inCallSite) & ~kAddressBits, 0u);

  hal::Object caps = hal::MakeStaticCaps(1);
  const auto popped = reinterpret_cast<uint64_t>(PoppedFor("GetStaticCapsHook", nullptr, caps.get(), nullptr,
                                                           nullptr, 0));
  EXPECT_EQ(popped & ~kAddressBits, 0u) << std::hex << popped;
  EXPECT_EQ(popped, reinterpret_cast<uint64_t>(g_callSiteReturn));
}

#endif  // __aarch64__

}  // namespace
