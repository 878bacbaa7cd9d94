// The hot paths: the CSL message hook runs for every kernel message, the
// capture request hook once per frame and the gyro hook per sample batch.
// With the core loaded and no argument set they must allocate nothing, take
// no lock, read no property and open no file.
//
// This program counts, while a measurement runs on the calling thread:
//  - heap allocations requested by the hook library: every allocation is
//    attributed by its call stack to the innermost caller outside the C and
//    C++ runtimes, so an allocation libc++ makes on the library's behalf
//    counts, and one the simulated platform makes (HAL, ShadowHook, core)
//    does not;
//  - mutex locks taken by the hook library, attributed the same way (a lock
//    libc++ takes for the library counts; the simulated core's own do not);
//  - calls of the property functions and of open/fopen, made by anyone.
// Allocations are seen through the sanitizer's allocation hook in sanitized
// builds and through malloc standing in front of the C library's otherwise.
// Locks are counted in unsanitized builds only: the sanitizers' runtimes
// intercept pthread_mutex_lock themselves.
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/framework/simframework.h"
#include "sim/hal/simhal.h"
#include "sim/hal/simlenspipelinehal.h"
#include "sim/harness/harness.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define REMEDIUM_SANITIZED_HEAP 1
#include <sanitizer/allocator_interface.h>
#endif
#endif

namespace {

thread_local bool t_measuring = false;
thread_local bool t_inside = false;  // an allocation made while attributing one

std::atomic<const void*> g_hookLibraryBase{nullptr};
std::atomic<int> g_hookAllocations{0};
std::atomic<int> g_hookLocks{0};
std::atomic<int> g_propertyCalls{0};
std::atomic<int> g_fileOpens{0};

const void* ModuleBase(const void* address) {
  Dl_info info{};
  return dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
}

// The C and C++ runtimes and this program (where the allocator entry points
// and the sanitizer runtime live) are passed through while walking outward.
bool IsPassThrough(const Dl_info& info) {
  static const void* const self = ModuleBase(reinterpret_cast<const void*>(&ModuleBase));
  if (info.dli_fbase == self) return true;
  const char* name = info.dli_fname != nullptr ? info.dli_fname : "";
  for (const char* runtime : {"/libc++", "/libc.so", "/libm.so", "/libgcc_s", "/libunwind", "/ld-linux"}) {
    if (std::strstr(name, runtime) != nullptr) return true;
  }
  return false;
}

bool RequestedByHookLibrary() {
  void* frames[64];
  const int depth = backtrace(frames, 64);
  for (int i = 0; i < depth; ++i) {
    Dl_info info{};
    if (dladdr(frames[i], &info) == 0) return false;
    if (info.dli_fbase == g_hookLibraryBase.load(std::memory_order_relaxed)) return true;
    if (!IsPassThrough(info)) return false;
  }
  return false;
}

void NoteHookCall(std::atomic<int>& counter) {
  if (!t_measuring || t_inside) return;
  t_inside = true;
  if (RequestedByHookLibrary()) counter.fetch_add(1, std::memory_order_relaxed);
  t_inside = false;
}

void NoteAllocation() { NoteHookCall(g_hookAllocations); }

void NoteAccess(std::atomic<int>& counter) {
  if (t_measuring) counter.fetch_add(1, std::memory_order_relaxed);
}

template <typename Fn>
Fn* Next(const char* name) {
  return reinterpret_cast<Fn*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

#ifdef REMEDIUM_SANITIZED_HEAP
namespace {
void OnMalloc(const volatile void*, size_t) { NoteAllocation(); }
void OnFree(const volatile void*) {}
[[maybe_unused]] const int g_heapHooks = __sanitizer_install_malloc_and_free_hooks(&OnMalloc, &OnFree);
}  // namespace
#else
// In front of the C library's allocator (operator new comes through here).
extern "C" {
void *__libc_malloc(size_t), *__libc_calloc(size_t, size_t), *__libc_realloc(void*, size_t), __libc_free(void*);

void* malloc(size_t size) {
  NoteAllocation();
  return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
  NoteAllocation();
  return __libc_calloc(count, size);
}
void* realloc(void* pointer, size_t size) {
  NoteAllocation();
  return __libc_realloc(pointer, size);
}
void free(void* pointer) { __libc_free(pointer); }
}  // extern "C"
#endif

// In front of the platform's property store and file opening; exported from
// this program so that the hook library binds to them.
extern "C" {
int property_get(const char* key, char* value, const char* defaultValue) {
  NoteAccess(g_propertyCalls);
  return Next<int(const char*, char*, const char*)>("property_get")(key, value, defaultValue);
}
int32_t property_get_int32(const char* key, int32_t defaultValue) {
  NoteAccess(g_propertyCalls);
  return Next<int32_t(const char*, int32_t)>("property_get_int32")(key, defaultValue);
}
int property_set(const char* key, const char* value) {
  NoteAccess(g_propertyCalls);
  return Next<int(const char*, const char*)>("property_set")(key, value);
}
#ifndef REMEDIUM_SANITIZED_HEAP
// Sanitized builds keep their runtime's own open; opens are counted here.
int open(const char* path, int flags, ...) {
  NoteAccess(g_fileOpens);
  va_list args;
  va_start(args, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(args, mode_t) : 0;
  va_end(args);
  return Next<int(const char*, int, ...)>("open")(path, flags, mode);
}
FILE* fopen(const char* path, const char* mode) {
  NoteAccess(g_fileOpens);
  return Next<FILE*(const char*, const char*)>("fopen")(path, mode);
}
int pthread_mutex_lock(pthread_mutex_t* mutex) {
  // No function-local static: its guard would take this lock again.
  using Lock = int(pthread_mutex_t*);
  static std::atomic<Lock*> s_next{nullptr};
  Lock* next = s_next.load(std::memory_order_acquire);
  if (next == nullptr) {
    next = Next<Lock>("pthread_mutex_lock");
    s_next.store(next, std::memory_order_release);
  }
  NoteHookCall(g_hookLocks);
  return next(mutex);
}
#endif
}  // extern "C"

namespace {

using ::testing::Ge;
namespace fw = sim::framework;
namespace hal = sim::hal;

struct Counts {
  int hookAllocations;
  int hookLocks;
  int propertyCalls;
  int fileOpens;
};

// Runs `body` with counting on for this thread.
template <typename Body>
Counts Measure(Body body) {
  g_hookAllocations = 0;
  g_hookLocks = 0;
  g_propertyCalls = 0;
  g_fileOpens = 0;
  t_measuring = true;
  body();
  t_measuring = false;
  return {g_hookAllocations.load(), g_hookLocks.load(), g_propertyCalls.load(), g_fileOpens.load()};
}

void PrintTo(const Counts& counts, std::ostream* out) {
  *out << counts.hookAllocations << " allocations, " << counts.hookLocks << " locks, " << counts.propertyCalls
       << " property calls, " << counts.fileOpens << " opens";
}

MATCHER(TouchesNothing, "") {
  return arg.hookAllocations == 0 && arg.hookLocks == 0 && arg.propertyCalls == 0 && arg.fileOpens == 0;
}

class HotPathTest : public ::testing::Test {
 protected:
  void SetUp() override {
    void* warm[4];
    backtrace(warm, 4);  // loads the unwinder now, not while counting
    fw::InstallCore();
    std::string error;
    m_library = m_phone.StartCameraProcess(&error);
    ASSERT_NE(m_library, nullptr) << error;
    m_csl = m_library->Proxy<void(void*, CSLMessage*)>("CSLMessageHandlerHook");
    ASSERT_NE(m_csl, nullptr);
    g_hookLibraryBase = ModuleBase(reinterpret_cast<const void*>(m_csl));
  }

  void TearDown() override { g_hookLibraryBase = nullptr; }

  // `calls` messages carrying `value`; the first, which loads the core and
  // makes any first report, is not counted.
  Counts CountCSLMessages(uint64_t value, int calls = 200) {
    hal::CSLMessageObject first(0, value);
    m_csl(&m_session, first.get());
    return Measure([&] {
      for (int i = 0; i < calls; ++i) {
        hal::CSLMessageObject message(0, value);
        m_csl(&m_session, message.get());
      }
    });
  }

  sim::Phone m_phone;
  sim::HookLibrary* m_library = nullptr;
  void (*m_csl)(void*, CSLMessage*) = nullptr;
  int m_session = 0;
};

// With an argument the core's answer holds strings: those are the core's
// allocations; the conversion adds none of its own.
TEST_F(HotPathTest, CSLMessagesTouchNothing) {
  EXPECT_THAT(CountCSLMessages(42), TouchesNothing());
  EXPECT_EQ(hal::CallCount("CSLMessageHandler"), 201);
  fw::SetHookArguments("CSLMessageHandler", {"42"});
  EXPECT_THAT(CountCSLMessages(42), TouchesNothing());
}

TEST_F(HotPathTest, CaptureRequestsTouchNothing) {
  auto* capture = m_library->Proxy<CamxResult(void*, CamX::Camera3CaptureRequest*)>("ProcessCaptureRequestHook");
  ASSERT_NE(capture, nullptr);
  hal::RegisterRecordControlTag();
  hal::CaptureRequestObject recording, plain, noSettings;
  recording.SetRecordControl(0);
  plain.SetBytes(0x10000, {1, 2, 3});
  capture(nullptr, recording.get());
  EXPECT_THAT(Measure([&] {
                for (int i = 0; i < 200; ++i) {
                  for (auto* request : {&recording, &plain, &noSettings}) capture(nullptr, request->get());
                }
              }),
              TouchesNothing());
  EXPECT_EQ(hal::CallCount("ProcessCaptureRequest"), 601);
}

TEST_F(HotPathTest, GyroBatchesTouchNothing) {
  auto* gyro =
      m_library->Proxy<CamxResult(void*, CamX::NCSSensorType, std::vector<sensors_event_t*>&)>("PostGyroDataHook");
  ASSERT_NE(gyro, nullptr);
  const std::vector<int64_t> timestamps(8, 100000000);
  hal::SensorEventBatch first(timestamps);
  gyro(nullptr, CamX::NCSSensorType{}, first.samples());  // the once-per-process report
  hal::SensorEventBatch batch(timestamps);
  EXPECT_THAT(Measure([&] {
                for (int i = 0; i < 200; ++i) gyro(nullptr, CamX::NCSSensorType{}, batch.samples());
              }),
              TouchesNothing());
}

// The counters see what they are meant to: a report whose hook name is too
// long to stay inside a string is an allocation libc++ makes for the library,
// and the library's first log line reads the log level property.
TEST_F(HotPathTest, CountersSeeTheLibrarysOwnAllocationsAndAccesses) {
  fw::SetHookArguments("ReadLensPositionData", {"0", "5"});
  auto* readLens = m_library->Proxy<CamxResult(void*)>("ReadLensPositionDataHook");
  ASSERT_NE(readLens, nullptr);
  const Counts firstUse = Measure([&] { readLens(nullptr); });
  EXPECT_THAT(firstUse.hookAllocations, Ge(1));
#ifndef REMEDIUM_SANITIZED_HEAP
  EXPECT_THAT(firstUse.hookLocks, Ge(1));  // the core is loaded under the client's lock
#endif
  auto* registerProvider =
      m_library->Proxy<CamxResult(void*, void*, const CamX::NCSProviderCap*)>("OISRegisterProviderHook");
  ASSERT_NE(registerProvider, nullptr);
  EXPECT_THAT(Measure([&] { registerProvider(nullptr, nullptr, nullptr); }).propertyCalls, Ge(1));
#ifndef REMEDIUM_SANITIZED_HEAP
  EXPECT_EQ(Measure([] { std::fclose(std::fopen("/proc/self/stat", "r")); }).fileOpens, 1);
#endif
}

}  // namespace
