// What a proxy costs per call, side by side with a direct call of the HAL
// function it replaces (README.md here has the figures and what they mean).
//
// The built library is loaded by name as the framework core does, on a fresh
// simulated phone. Underneath it, this program puts what keeps a run of
// millions of calls honest and its memory flat, where the simulated platform
// records every call for the tests:
//  - HAL functions with the HAL's parameter lists that only return; a
//    "direct" case calls one through a pointer, its "proxy" case calls the
//    proxy installed over it;
//  - ShadowHook's three calls: a lookup in a small table, the shared mode,
//    a pop that stores the address;
//  - the Android log: takes the finished line and drops it (logd's socket
//    write is not measured);
//  - a core that finds no hook arguments (bench.remedium.core.so), or none;
//  - for the later sensor probe, a message centre with fixed answers
//    (bench.messagecenter.so);
//  - the HAL's vendor-tag query, answered from a fixed table without a lock;
//  - malloc, calloc and realloc, counted; those made inside a stand-in (the
//    message centre, and the simulated platform's files and properties,
//    reached through brackets here) are counted apart.
//
// Usage: remedium_bench [Google Benchmark flags]
//        remedium_bench --callgrind CALLS   (run under valgrind by scripts/bench)
// REMEDIUM_BENCH_HOOK_LIBRARY=PATH loads another build of the library (an
// older one, to compare).
#include <dlfcn.h>
#include <fcntl.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <hardware/sensors.h>
#include <shadowhook.h>

#include "client/interface/logsites.h"
#include "sim/framework/simframework.h"
#include "sim/hal/simhal.h"
#include "sim/hal/simlenspipelinehal.h"
#include "sim/hal/simsensorhal.h"
#include "sim/harness/harness.h"
#include "sim/platform/simdevice.h"
#include "sim/platform/simproperties.h"

// ---------------------------------------------------------------------------
// Counted allocations and log lines (this thread only). Allocations made
// while a stand-in runs are counted twice: in the total and apart.

namespace {
thread_local uint64_t t_allocations = 0;
thread_local uint64_t t_standInAllocations = 0;
thread_local int t_standInDepth = 0;
thread_local uint64_t t_logLines = 0;

void CountAllocation() {
  ++t_allocations;
  if (t_standInDepth > 0) ++t_standInAllocations;
}

struct StandInScope {
  StandInScope() { ++t_standInDepth; }
  ~StandInScope() { --t_standInDepth; }
  StandInScope(const StandInScope&) = delete;
  StandInScope& operator=(const StandInScope&) = delete;
};

// The next definition of `name` after this program's: the simulated platform's.
template <typename Fn>
Fn* Next(const char* name) {
  return reinterpret_cast<Fn*>(dlsym(RTLD_NEXT, name));
}
}  // namespace

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
void __libc_free(void* pointer);

void* malloc(size_t size) {
  CountAllocation();
  return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
  CountAllocation();
  return __libc_calloc(count, size);
}
void* realloc(void* pointer, size_t size) {
  CountAllocation();
  return __libc_realloc(pointer, size);
}
void free(void* pointer) { __libc_free(pointer); }

int __android_log_print(int, const char*, const char*, ...) {
  ++t_logLines;
  return 1;
}

// Brackets for the benchmark's own stand-in libraries.
void BenchStandInEnter() { ++t_standInDepth; }
void BenchStandInLeave() { --t_standInDepth; }

// The simulated platform's files (the device root, sysfs behaviour and its
// journal) and properties, bracketed.
int open(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) {
    va_list args;
    va_start(args, flags);
    mode = va_arg(args, mode_t);
    va_end(args);
  }
  const StandInScope scope;
  static auto* next = Next<int(const char*, int, ...)>("open");
  return next(path, flags, mode);
}
int open64(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) {
    va_list args;
    va_start(args, flags);
    mode = va_arg(args, mode_t);
    va_end(args);
  }
  const StandInScope scope;
  static auto* next = Next<int(const char*, int, ...)>("open64");
  return next(path, flags, mode);
}
ssize_t write(int fd, const void* buffer, size_t count) {
  const StandInScope scope;
  static auto* next = Next<ssize_t(int, const void*, size_t)>("write");
  return next(fd, buffer, count);
}
int close(int fd) {
  const StandInScope scope;
  static auto* next = Next<int(int)>("close");
  return next(fd);
}
int property_get(const char* key, char* value, const char* defaultValue) {
  const StandInScope scope;
  static auto* next = Next<int(const char*, char*, const char*)>("property_get");
  return next(key, value, defaultValue);
}
int32_t property_get_int32(const char* key, int32_t defaultValue) {
  const StandInScope scope;
  static auto* next = Next<int32_t(const char*, int32_t)>("property_get_int32");
  return next(key, defaultValue);
}
int property_set(const char* key, const char* value) {
  const StandInScope scope;
  static auto* next = Next<int(const char*, const char*)>("property_set");
  return next(key, value);
}
}  // extern "C"

// The HAL's vendor-tag query: the record-control tag from a fixed table,
// without a lock (the simulated HAL's takes its state lock, which would make
// threads calling the capture-request hook meet in the stand-in).
CamxResult CamX::VendorTagManager::QueryVendorTagLocation(const char* pSectionName, const char* pTagName,
                                                          uint32_t* pTagLocation) {
  if (pSectionName == nullptr || pTagName == nullptr || pTagLocation == nullptr ||
      std::strcmp(pSectionName, "velora.video") != 0 || std::strcmp(pTagName, "recordControl") != 0) {
    return CamxResultEFailed;
  }
  *pTagLocation = sim::hal::kRecordControlTagLocation;
  return CamxResultSuccess;
}

// ---------------------------------------------------------------------------
// ShadowHook, shared mode. The previous function is found in a small
// open-addressed table: constant work per call, about what ShadowHook's own
// lookup of the proxy in its hub does.

namespace {

struct HookSlot {
  void* proxy;
  void* previous;
};
constexpr size_t kHookSlots = 64;
HookSlot g_hooks[kHookSlots];
// Per thread, as ShadowHook keeps its hook stack per thread: threads calling
// proxies do not share a written cache line here.
thread_local void* volatile t_lastPopped = nullptr;

size_t SlotOf(const void* proxy) { return (reinterpret_cast<uintptr_t>(proxy) >> 4) % kHookSlots; }

void InstallHook(void* proxy, void* previous) {
  for (size_t i = SlotOf(proxy);; i = (i + 1) % kHookSlots) {
    if (g_hooks[i].proxy == nullptr || g_hooks[i].proxy == proxy) {
      g_hooks[i] = {proxy, previous};
      return;
    }
  }
}

void ClearHooks() {
  for (HookSlot& slot : g_hooks) slot = {nullptr, nullptr};
}

}  // namespace

extern "C" {
void* shadowhook_get_prev_func(void* func) {
  for (size_t i = SlotOf(func); g_hooks[i].proxy != nullptr; i = (i + 1) % kHookSlots) {
    if (g_hooks[i].proxy == func) return g_hooks[i].previous;
  }
  return nullptr;
}
shadowhook_mode_t shadowhook_get_mode(void) { return SHADOWHOOK_MODE_SHARED; }
void shadowhook_pop_stack(void* return_address) { t_lastPopped = return_address; }
}  // extern "C"

// ---------------------------------------------------------------------------
// The HAL functions: the HAL's parameter lists, no work.

namespace benchhal {
#define BENCH_HAL __attribute__((noinline))
BENCH_HAL CamxResult GetStaticCaps(void*, CamX::SensorModuleStaticCaps*, CSLSensorCapability*, CamX::TuningDataManager*,
                                   unsigned int) {
  return 0;
}
BENCH_HAL CamxResult SensorProbe(void*, int*, int*) { return 0; }
BENCH_HAL CamxResult InitializeSensorDevice(void*) { return 0; }
BENCH_HAL CamxResult LoadSensorInitConfigCmd(void*) { return 0; }
BENCH_HAL CamxResult LoadSensorConfigCmds(void*) { return 0; }
BENCH_HAL CamxResult SensorCreateAndSubmitCommand(void*, unsigned int, CamX::I2CRegSettingType, CSLPacketOpcodesSensor,
                                                  unsigned int, unsigned int, const void*) {
  return 0;
}
BENCH_HAL CamxResult CreateI2CInfoCmd(void*, CSLSensorI2CInfo*, unsigned short) { return 0; }
BENCH_HAL CamxResult EEPROMDataProbe(void*) { return 0; }
BENCH_HAL CamxResult ProbeEEPROM(void*, CamX::HwSensorInfo*, const CamX::HwDeviceTypeInfo*) { return 0; }
BENCH_HAL CamxResult ReadEEPROMDevice(void*) { return 0; }
BENCH_HAL CamxResult EEPROMVerifyChecksum(void*, unsigned char*, int) { return 0; }
BENCH_HAL void ActuatorData(void*, CamX::ActuatorDriverData*) {}
BENCH_HAL CamxResult OISRegisterProvider(void*, void*, const CamX::NCSProviderCap*) { return 0; }
BENCH_HAL CamxResult OISCreateI2CInfoCmd(void*, CSLOISI2CInfo*, int) { return 0; }
BENCH_HAL CamxResult ReadLensPositionData(void*) { return 0; }
BENCH_HAL CamxResult FormatLensPositionData(void*, CamX::OISLensPositionData*, unsigned char*, unsigned long) {
  return 0;
}
BENCH_HAL CamxResult PostGyroData(void*, CamX::NCSSensorType, std::vector<sensors_event_t*>&) { return 0; }
BENCH_HAL void CSLMessageHandler(void*, CSLMessage*) {}
BENCH_HAL CamxResult ProcessCaptureRequest(void*, CamX::Camera3CaptureRequest*) { return 0; }
#undef BENCH_HAL
}  // namespace benchhal

// ---------------------------------------------------------------------------
// The cases.

namespace {

namespace hal = sim::hal;

constexpr char kCorePath[] = "/vendor/lib64/com.velora.remedium.core.so";
constexpr char kMessageCenterPath[] = "/vendor/lib64/com.velora.messagecenter.so";
constexpr char kOverrideSettingsPath[] = "/odm/etc/camera/camxoverridesettings.txt";
constexpr char kModuleSwitchProperty[] = "persist.vendor.camera.cloud.remedium.modswitch";
constexpr int kWarmUpCalls = 8;
constexpr int kDefaultRepetitions = 5;
// A later sensor probe: each probe adds to the sensor's probe history, and
// the retry checks count through all of it, so the cost of a call grows with
// the number of earlier ones (a few instructions each). Every measurement
// starts from a freshly loaded library, makes the warm-up calls, then
// measures this many calls: 8 to 108 earlier probes, as on a phone whose
// camera was opened often.
constexpr int kProbeCalls = 100;

// The HAL objects the proxies read, alive for the whole run.
struct HalObjects {
  hal::Object caps = hal::MakeStaticCaps(1);
  hal::SensorProbeObject probe{"s5kjn1", uint16_t{0}};
  hal::SensorNodeObject node{0};
  hal::SensorI2CInfoObject sensorI2C{0x18};
  hal::EepromDataObject eeprom{0, "s5kjn1"};
  hal::HwSensorInfoObject eepromInfo{"s5kjn1_eeprom"};
  hal::ActuatorDriverDataObject actuator{std::string("ak7377"), 0x18};
  hal::OISI2CInfoObject oisI2C{0x18};
  hal::CaptureRequestObject request;
  hal::CSLMessageObject message{0, 42};
  std::vector<unsigned char> checksum = std::vector<unsigned char>(1024, 0xAB);
  std::vector<unsigned char> lensBuffer = std::vector<unsigned char>(64, 0);
  hal::SensorEventBatch gyro{{1000000000000, 1000001000000, 1000002000000, 1000003000000, 1000004000000, 1000005000000,
                              1000006000000, 1000007000000}};
  int session = 0;

  HalObjects() {
    hal::RegisterRecordControlTag();
    request.SetBytes(0x10000, {1, 2, 3});  // settings without the record-control tag
  }
};

// One measured call: a name and the call, as a function of the loaded
// library (null: the proxy is missing).
struct Case {
  std::string name;
  std::function<void()> direct;
  std::function<std::function<void()>(const sim::HookLibrary&)> proxy;
};

template <typename Result, typename... Params, typename... Args>
Case MakeCase(const char* name, Result (*halFunction)(Params...), Args... args) {
  Case c;
  c.name = name;
  c.direct = [halFunction, args...] {
    auto* volatile call = halFunction;  // a call through a pointer, as the hook's
    benchmark::DoNotOptimize(call(args...));
  };
  const std::string proxyName = std::string(name) + "Hook";
  c.proxy = [proxyName, halFunction, args...](const sim::HookLibrary& library) -> std::function<void()> {
    auto* proxy = library.Proxy<Result(Params...)>(proxyName);
    if (proxy == nullptr) return nullptr;
    InstallHook(reinterpret_cast<void*>(proxy), reinterpret_cast<void*>(halFunction));
    return [proxy, args...] { benchmark::DoNotOptimize(proxy(args...)); };
  };
  return c;
}

// The same for HAL functions without a result.
template <typename... Params, typename... Args>
Case MakeVoidCase(const char* name, void (*halFunction)(Params...), Args... args) {
  Case c;
  c.name = name;
  c.direct = [halFunction, args...] {
    auto* volatile call = halFunction;
    call(args...);
    benchmark::ClobberMemory();
  };
  const std::string proxyName = std::string(name) + "Hook";
  c.proxy = [proxyName, halFunction, args...](const sim::HookLibrary& library) -> std::function<void()> {
    auto* proxy = library.Proxy<void(Params...)>(proxyName);
    if (proxy == nullptr) return nullptr;
    InstallHook(reinterpret_cast<void*>(proxy), reinterpret_cast<void*>(halFunction));
    return [proxy, args...] {
      proxy(args...);
      benchmark::ClobberMemory();
    };
  };
  return c;
}

std::vector<Case> Cases(HalObjects& o) {
  auto* caps = static_cast<CamX::SensorModuleStaticCaps*>(o.caps.get());
  return {
      MakeCase("GetStaticCaps", &benchhal::GetStaticCaps, static_cast<void*>(nullptr), caps,
               static_cast<CSLSensorCapability*>(nullptr), static_cast<CamX::TuningDataManager*>(nullptr), 0u),
      MakeCase("SensorProbe", &benchhal::SensorProbe, o.probe.get(), static_cast<int*>(nullptr),
               static_cast<int*>(nullptr)),
      MakeCase("InitializeSensorDevice", &benchhal::InitializeSensorDevice, o.node.get()),
      MakeCase("LoadSensorInitConfigCmd", &benchhal::LoadSensorInitConfigCmd, o.node.get()),
      MakeCase("LoadSensorConfigCmds", &benchhal::LoadSensorConfigCmds, o.node.get()),
      MakeCase("SensorCreateAndSubmitCommand", &benchhal::SensorCreateAndSubmitCommand, o.node.get(), 0u,
               CamX::I2CRegSettingType{}, CSLPacketOpcodesSensor{0}, 0u, 0u, static_cast<const void*>(nullptr)),
      MakeCase("CreateI2CInfoCmd", &benchhal::CreateI2CInfoCmd, static_cast<void*>(nullptr), o.sensorI2C.get(),
               static_cast<unsigned short>(0)),
      MakeCase("EEPROMDataProbe", &benchhal::EEPROMDataProbe, o.eeprom.get()),
      MakeCase("ProbeEEPROM", &benchhal::ProbeEEPROM, static_cast<void*>(nullptr), o.eepromInfo.get(),
               static_cast<const CamX::HwDeviceTypeInfo*>(nullptr)),
      MakeCase("ReadEEPROMDevice", &benchhal::ReadEEPROMDevice, o.eeprom.get()),
      MakeCase("EEPROMVerifyChecksum", &benchhal::EEPROMVerifyChecksum, static_cast<void*>(nullptr), o.checksum.data(),
               static_cast<int>(o.checksum.size())),
      MakeVoidCase("ActuatorData", &benchhal::ActuatorData, static_cast<void*>(nullptr), o.actuator.get()),
      MakeCase("OISRegisterProvider", &benchhal::OISRegisterProvider, static_cast<void*>(nullptr),
               static_cast<void*>(nullptr), static_cast<const CamX::NCSProviderCap*>(nullptr)),
      MakeCase("OISCreateI2CInfoCmd", &benchhal::OISCreateI2CInfoCmd, static_cast<void*>(nullptr), o.oisI2C.get(), 0),
      MakeCase("ReadLensPositionData", &benchhal::ReadLensPositionData, static_cast<void*>(nullptr)),
      MakeCase("FormatLensPositionData", &benchhal::FormatLensPositionData, static_cast<void*>(nullptr),
               static_cast<CamX::OISLensPositionData*>(nullptr), o.lensBuffer.data(),
               static_cast<unsigned long>(o.lensBuffer.size())),
      MakeCase("PostGyroData", &benchhal::PostGyroData, static_cast<void*>(nullptr), CamX::NCSSensorType{1},
               std::ref(o.gyro.samples())),
      MakeVoidCase("CSLMessageHandler", &benchhal::CSLMessageHandler, static_cast<void*>(&o.session), o.message.get()),
      MakeCase("ProcessCaptureRequest", &benchhal::ProcessCaptureRequest, static_cast<void*>(nullptr), o.request.get()),
  };
}

// A log site below the level (dropped at the call site, before its arguments
// are set up) and one at it (formatted and handed to the log), as the hooks
// write them. The default level is INFO; the state record's lines are VERBOSE.
void LogBelowLevel() {
  char value[] = "<P:S:12><I:-:0><C:-:0>";
  benchmark::DoNotOptimize(value);
  REMEDIUM_LOG(StateUpdateRead, 3, "P", "S", value);
}
void LogAtLevel() { REMEDIUM_LOG(StaticCapsSlot, 3, 5); }

// ---------------------------------------------------------------------------
// Running.

// The phone a loaded library runs on:
//  - kCore: the bench core, no message centre, no override settings;
//  - kNoCore: no core file at all;
//  - kProbe: the bench core, the bench message centre, override settings
//    with a retry budget for a two-module slot, and every module switched on
//    (the image-sensor state record among them): what a later sensor probe
//    of a configured phone meets.
enum class Process { kCore, kNoCore, kProbe };

const char* PrefixOf(Process process) {
  switch (process) {
    case Process::kCore:
      return "core/";
    case Process::kNoCore:
      return "nocore/";
    case Process::kProbe:
      return "probe/";
  }
  return "";
}

struct Figures {
  double ns = 0;        // fastest repetition
  double nsMedian = 0;  // median repetition
  double allocations = 0;
  double standInAllocations = 0;
  double logLines = 0;
  // Threads: calls per second per thread of wall time and of the thread's
  // CPU time, best and median repetition.
  double callsPerSecond = 0;
  double callsPerSecondMedian = 0;
  double callsPerCpuSecond = 0;
  double callsPerCpuSecondMedian = 0;
};
// By benchmark name: CPU time of the measuring thread per call (on a shared
// machine wall time also counts other programs' turns).
std::map<std::string, Figures> g_figures;

double CounterOf(const benchmark::BenchmarkReporter::Run& run, const char* name) {
  auto it = run.counters.find(name);
  return it == run.counters.end() ? 0 : it->second.value;
}

class TableReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Aggregate) continue;
      std::string name = run.run_name.function_name;
      if (!run.run_name.threads.empty()) name += "/" + run.run_name.threads;
      Figures& f = g_figures[name];
      if (run.aggregate_name == "min") {
        f.ns = run.GetAdjustedCPUTime();
        f.allocations = CounterOf(run, "allocs");
        f.standInAllocations = CounterOf(run, "standin_allocs");
        f.logLines = CounterOf(run, "logs");
      } else if (run.aggregate_name == "median") {
        f.nsMedian = run.GetAdjustedCPUTime();
        f.callsPerSecondMedian = CounterOf(run, "calls_per_s");
        f.callsPerCpuSecondMedian = CounterOf(run, "calls_per_cpu_s");
      } else if (run.aggregate_name == "max") {
        f.callsPerSecond = CounterOf(run, "calls_per_s");
        f.callsPerCpuSecond = CounterOf(run, "calls_per_cpu_s");
      }
    }
  }
};

template <typename Call>
void Measure(benchmark::State& state, Call call) {
  for (int i = 0; i < kWarmUpCalls; ++i) call();
  const uint64_t allocationsBefore = t_allocations;
  const uint64_t standInBefore = t_standInAllocations;
  const uint64_t linesBefore = t_logLines;
  for (auto _ : state) call();
  const uint64_t standIn = t_standInAllocations - standInBefore;
  state.counters["allocs"] = benchmark::Counter(static_cast<double>(t_allocations - allocationsBefore - standIn),
                                                benchmark::Counter::kAvgIterations);
  state.counters["standin_allocs"] =
      benchmark::Counter(static_cast<double>(standIn), benchmark::Counter::kAvgIterations);
  state.counters["logs"] =
      benchmark::Counter(static_cast<double>(t_logLines - linesBefore), benchmark::Counter::kAvgIterations);
}

double Min(const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); }
double Max(const std::vector<double>& v) { return *std::max_element(v.begin(), v.end()); }

// `call` is a std::function for the HAL and proxy cases (the same indirection
// on both sides of a comparison) and a plain function for RemediumLog.
// Repetitions: --benchmark_repetitions (main sets a default); the table
// takes the fastest and the median.
template <typename Call>
void Register(const std::string& name, Call call) {
  benchmark::RegisterBenchmark(name.c_str(), [call](benchmark::State& state) { Measure(state, call); })
      ->Unit(benchmark::kNanosecond)
      ->ReportAggregatesOnly(true)
      ->ComputeStatistics("min", Min);
}

double ThreadCpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Thread scaling: each thread calls the proxy for its own camera (its own
// session and message, or its own request); per thread, calls per second of
// wall time from the first call to the last, and per second of the thread's
// CPU time (which leaves out the turns other programs take on a shared
// machine, and keeps time lost to a shared cache line or a spinning lock).
void RegisterThreaded(const std::string& name, const std::function<std::function<void()>(int)>& perThread) {
  benchmark::RegisterBenchmark(
      name.c_str(),
      [perThread](benchmark::State& state) {
        const std::function<void()> call = perThread(state.thread_index());
        for (int i = 0; i < kWarmUpCalls; ++i) call();
        const double cpuStart = ThreadCpuSeconds();
        const auto start = std::chrono::steady_clock::now();
        for (auto _ : state) call();
        const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
        const double cpu = ThreadCpuSeconds() - cpuStart;
        // Summed over the threads, then divided by their number.
        state.counters["calls_per_s"] =
            benchmark::Counter(static_cast<double>(state.iterations()) / wall.count(), benchmark::Counter::kAvgThreads);
        state.counters["calls_per_cpu_s"] =
            benchmark::Counter(static_cast<double>(state.iterations()) / cpu, benchmark::Counter::kAvgThreads);
      })
      ->Threads(1)
      ->Threads(2)
      ->Threads(4)
      ->UseRealTime()
      ->Unit(benchmark::kNanosecond)
      ->ReportAggregatesOnly(true)
      ->ComputeStatistics("max", Max);
}

std::string LibraryPath() {
  const char* path = std::getenv("REMEDIUM_BENCH_HOOK_LIBRARY");
  return path != nullptr && *path != '\0' ? path : sim::HookLibraryPath();
}

// Loads the library on the phone that `process` describes.
std::unique_ptr<sim::HookLibrary> StartProcess(Process process) {
  ClearHooks();
  if (process == Process::kNoCore) {
    sim::RemoveDeviceFile(kCorePath);
  } else {
    sim::LinkDeviceFile(kCorePath, sim::framework::LibraryDir() + "/bench.remedium.core.so");
  }
  if (process == Process::kProbe) {
    sim::LinkDeviceFile(kMessageCenterPath, sim::framework::LibraryDir() + "/bench.messagecenter.so");
    sim::WriteDeviceFile(kOverrideSettingsPath, "SensorModuleRetryTimes=3\nsensorModuleNumber=2\n");
    sim::PresetProperty(kModuleSwitchProperty, "127");
  } else {
    sim::RemoveDeviceFile(kMessageCenterPath);
    sim::RemoveDeviceFile(kOverrideSettingsPath);
    sim::ResetProperties();
  }
  std::string error;
  auto library = sim::HookLibrary::Load(LibraryPath(), &error);
  if (!library) {
    std::fprintf(stderr, "%s\n", error.c_str());
    std::exit(1);
  }
  return library;
}

// The proxy cases of `process`: every case on kCore and kNoCore; the sensor
// probe alone on kProbe.
std::vector<std::pair<std::string, std::function<void()>>> ProxyCalls(const std::vector<Case>& cases, Process process,
                                                                      const sim::HookLibrary& library) {
  std::vector<std::pair<std::string, std::function<void()>>> calls;
  for (const Case& c : cases) {
    if (process == Process::kProbe && c.name != "SensorProbe") continue;
    if (auto call = c.proxy(library)) calls.emplace_back(PrefixOf(process) + c.name, std::move(call));
  }
  return calls;
}

// Per-thread HAL objects of the thread-scaling cases: camera `index` has its
// own session and kernel message, and its own capture request.
struct CameraObjects {
  int session;
  hal::CSLMessageObject message{0, 42};
  hal::CaptureRequestObject request;
  explicit CameraObjects(int index) : session(index) { request.SetBytes(0x10000, {1, 2, 3}); }
};

void RegisterThreadScaling(const sim::HookLibrary& library) {
  auto* csl = library.Proxy<void(void*, CSLMessage*)>("CSLMessageHandlerHook");
  auto* capture = library.Proxy<CamxResult(void*, CamX::Camera3CaptureRequest*)>("ProcessCaptureRequestHook");
  if (csl == nullptr || capture == nullptr) return;
  // Up to four cameras, built before the threads start.
  static std::vector<std::unique_ptr<CameraObjects>> cameras;
  cameras.clear();
  for (int i = 0; i < 4; ++i) cameras.push_back(std::make_unique<CameraObjects>(i));
  RegisterThreaded("threads/CSLMessageHandler", [csl](int thread) -> std::function<void()> {
    CameraObjects* camera = cameras[static_cast<size_t>(thread) % cameras.size()].get();
    return [csl, camera] {
      csl(&camera->session, camera->message.get());
      benchmark::ClobberMemory();
    };
  });
  RegisterThreaded("threads/ProcessCaptureRequest", [capture](int thread) -> std::function<void()> {
    CameraObjects* camera = cameras[static_cast<size_t>(thread) % cameras.size()].get();
    return [capture, camera] { benchmark::DoNotOptimize(capture(nullptr, camera->request.get())); };
  });
}

void PrintTable(const std::vector<Case>& cases) {
  std::printf(
      "\nPer call, CPU time of the measuring thread, fastest and median of the repetitions (ns);\n"
      "allocations (the library's; stand-ins' apart) and log lines per call\n");
  std::printf("%-30s %7s | %7s %7s %7s %6s %6s %5s | %7s %7s %6s\n", "HAL function", "direct", "proxy", "median",
              "added", "ratio", "allocs", "logs", "no core", "median", "allocs");
  for (const Case& c : cases) {
    const Figures direct = g_figures["direct/" + c.name];
    const Figures core = g_figures["core/" + c.name];
    const Figures none = g_figures["nocore/" + c.name];
    std::printf("%-30s %7.1f | %7.1f %7.1f %7.1f %6.1f %6.2f %5.2f | %7.1f %7.1f %6.2f\n", c.name.c_str(), direct.ns,
                core.ns, core.nsMedian, core.ns - direct.ns, core.ns / direct.ns, core.allocations - direct.allocations,
                core.logLines, none.ns, none.nsMedian, none.allocations - direct.allocations);
  }
  const Figures below = g_figures["log/below-level"];
  const Figures at = g_figures["log/at-level"];
  std::printf("%-30s %7s | %7.1f %7.1f %7s %6s %6.2f %5.2f\n", "RemediumLog below the level", "", below.ns,
              below.nsMedian, "", "", below.allocations, below.logLines);
  std::printf("%-30s %7s | %7.1f %7.1f %7s %6s %6.2f %5.2f\n", "RemediumLog at the level", "", at.ns, at.nsMedian, "",
              "", at.allocations, at.logLines);

  const Figures probe = g_figures["probe/SensorProbe"];
  std::printf(
      "\nA later SensorProbeHook call, core, message centre and override settings present:\n"
      "  %.0f ns fastest, %.0f ns median; %.1f allocations of the library's, %.1f of the stand-ins';"
      " %.1f log lines\n",
      probe.ns, probe.nsMedian, probe.allocations, probe.standInAllocations, probe.logLines);

  std::printf(
      "\nThread scaling, core present: million calls per second per thread, of wall time and of\n"
      "the thread's CPU time, best and median repetition\n");
  std::printf("%-24s %7s %10s %10s %10s %10s\n", "proxy", "threads", "wall best", "median", "CPU best", "median");
  for (const char* name : {"CSLMessageHandler", "ProcessCaptureRequest"}) {
    for (const char* threads : {"1", "2", "4"}) {
      const Figures f = g_figures[std::string("threads/") + name + "/threads:" + threads];
      std::printf("%-24s %7s %10.1f %10.1f %10.1f %10.1f\n", name, threads, f.callsPerSecond / 1e6,
                  f.callsPerSecondMedian / 1e6, f.callsPerCpuSecond / 1e6, f.callsPerCpuSecondMedian / 1e6);
    }
  }

  std::printf("\nBudgets (core present, no argument set):\n");
  auto verdict = [](bool kept) { return kept ? "within" : "OVER"; };
  for (const char* name : {"ProcessCaptureRequest", "CSLMessageHandler"}) {
    const double added = g_figures[std::string("core/") + name].ns - g_figures[std::string("direct/") + name].ns;
    const double allocations =
        g_figures[std::string("core/") + name].allocations - g_figures[std::string("direct/") + name].allocations;
    std::printf("  %sHook: %.1f ns added (budget 100), %.2f allocations added (budget 0): %s\n", name, added,
                allocations, verdict(added < 100 && allocations == 0));
  }
  std::printf("  RemediumLog below the level: %.2f ns (budget 5): %s\n", below.ns, verdict(below.ns < 5));
  std::printf("  A later SensorProbeHook: %.1f allocations of the library's (target 150): %s\n", probe.allocations,
              verdict(probe.allocations <= 150));
}

// Each case CALLS times (the later sensor probe kProbeCalls times) with
// callgrind counting; one dump per case. Prints "<dump number> <case>
// <calls> <library allocations per call> <stand-ins'>" per dump for
// scripts/bench.
int RunUnderCallgrind(const std::vector<Case>& cases, int defaultCalls) {
  int dump = 0;
  auto count = [&](const std::string& name, const std::function<void()>& call) {
    const int calls = name.rfind("probe/", 0) == 0 ? kProbeCalls : defaultCalls;
    for (int i = 0; i < kWarmUpCalls; ++i) call();
    const uint64_t allocationsBefore = t_allocations;
    const uint64_t standInBefore = t_standInAllocations;
    CALLGRIND_START_INSTRUMENTATION;
    CALLGRIND_ZERO_STATS;
    for (int i = 0; i < calls; ++i) call();
    CALLGRIND_DUMP_STATS_AT(name.c_str());
    CALLGRIND_STOP_INSTRUMENTATION;
    const uint64_t standIn = t_standInAllocations - standInBefore;
    const uint64_t all = t_allocations - allocationsBefore;
    std::printf("%d %s %d %.2f %.2f\n", ++dump, name.c_str(), calls, static_cast<double>(all - standIn) / calls,
                static_cast<double>(standIn) / calls);
  };
  for (const Case& c : cases) count("direct/" + c.name, c.direct);
  for (Process process : {Process::kCore, Process::kNoCore, Process::kProbe}) {
    auto library = StartProcess(process);
    for (const auto& [name, call] : ProxyCalls(cases, process, *library)) count(name, call);
  }
  count("log/below-level", LogBelowLevel);
  count("log/at-level", LogAtLevel);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  sim::Phone phone;  // a fresh device root; the override settings are absent
  hal::WriteKernelTable(std::vector<int64_t>(64, 0));
  sim::PinBootTime(100);
  HalObjects objects;
  const std::vector<Case> cases = Cases(objects);

  if (argc >= 3 && std::strcmp(argv[1], "--callgrind") == 0) return RunUnderCallgrind(cases, std::atoi(argv[2]));

  // Repeated runs unless told otherwise: the table reports the fastest and
  // the median repetition.
  std::vector<char*> args(argv, argv + argc);
  std::string repetitions = "--benchmark_repetitions=" + std::to_string(kDefaultRepetitions);
  if (std::none_of(args.begin(), args.end(),
                   [](const char* a) { return std::strncmp(a, "--benchmark_repetitions", 23) == 0; })) {
    args.push_back(repetitions.data());
  }
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  TableReporter reporter;
  for (const Case& c : cases) Register("direct/" + c.name, c.direct);
  Register("log/below-level", LogBelowLevel);
  Register("log/at-level", LogAtLevel);
  for (Process process : {Process::kCore, Process::kNoCore}) {
    auto library = StartProcess(process);
    for (const auto& [name, call] : ProxyCalls(cases, process, *library)) Register(name, call);
    if (process == Process::kCore) RegisterThreadScaling(*library);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::ClearRegisteredBenchmarks();
  }
  // The later sensor probe: a fresh process for every repetition.
  benchmark::RegisterBenchmark("probe/SensorProbe",
                               [&cases](benchmark::State& state) {
                                 auto library = StartProcess(Process::kProbe);
                                 const auto calls = ProxyCalls(cases, Process::kProbe, *library);
                                 if (calls.empty()) {
                                   state.SkipWithError("no SensorProbeHook");
                                   for (auto _ : state) {
                                   }
                                   return;
                                 }
                                 Measure(state, calls.front().second);
                               })
      ->Iterations(kProbeCalls)
      ->Unit(benchmark::kNanosecond)
      ->ReportAggregatesOnly(true)
      ->ComputeStatistics("min", Min);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::ClearRegisteredBenchmarks();
  PrintTable(cases);
  benchmark::Shutdown();
  return 0;
}
