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
//  - malloc, calloc and realloc, counted.
//
// Usage: remedium_bench [Google Benchmark flags]
//        remedium_bench --callgrind CALLS   (run under valgrind by scripts/bench)
#include <benchmark/benchmark.h>
#include <hardware/sensors.h>
#include <shadowhook.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "client/interface/logsites.h"
#include "harness.h"
#include "simdevice.h"
#include "simhal.h"
#include "simlenspipelinehal.h"
#include "simsensorhal.h"

// ---------------------------------------------------------------------------
// Counted allocations and log lines (this thread only).

namespace {
thread_local uint64_t t_allocations = 0;
thread_local uint64_t t_logLines = 0;
}  // namespace

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
void __libc_free(void* pointer);

void* malloc(size_t size) {
  ++t_allocations;
  return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
  ++t_allocations;
  return __libc_calloc(count, size);
}
void* realloc(void* pointer, size_t size) {
  ++t_allocations;
  return __libc_realloc(pointer, size);
}
void free(void* pointer) { __libc_free(pointer); }

int __android_log_print(int, const char*, const char*, ...) {
  ++t_logLines;
  return 1;
}
}  // extern "C"

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
void* volatile g_lastPopped = nullptr;

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
void shadowhook_pop_stack(void* return_address) { g_lastPopped = return_address; }
}  // extern "C"

// ---------------------------------------------------------------------------
// The HAL functions: the HAL's parameter lists, no work.

namespace benchhal {
#define BENCH_HAL __attribute__((noinline))
BENCH_HAL CamxResult GetStaticCaps(void*, CamX::SensorModuleStaticCaps*, CSLSensorCapability*,
                                   CamX::TuningDataManager*, unsigned int) {
  return 0;
}
BENCH_HAL CamxResult SensorProbe(void*, int*, int*) { return 0; }
BENCH_HAL CamxResult InitializeSensorDevice(void*) { return 0; }
BENCH_HAL CamxResult LoadSensorInitConfigCmd(void*) { return 0; }
BENCH_HAL CamxResult LoadSensorConfigCmds(void*) { return 0; }
BENCH_HAL CamxResult SensorCreateAndSubmitCommand(void*, unsigned int, CamX::I2CRegSettingType,
                                                  CSLPacketOpcodesSensor, unsigned int, unsigned int, const void*) {
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
constexpr int kWarmUpCalls = 8;

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
  hal::SensorEventBatch gyro{{1000000000000, 1000001000000, 1000002000000, 1000003000000, 1000004000000,
                              1000005000000, 1000006000000, 1000007000000}};
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
      MakeCase("EEPROMVerifyChecksum", &benchhal::EEPROMVerifyChecksum, static_cast<void*>(nullptr),
               o.checksum.data(), static_cast<int>(o.checksum.size())),
      MakeVoidCase("ActuatorData", &benchhal::ActuatorData, static_cast<void*>(nullptr), o.actuator.get()),
      MakeCase("OISRegisterProvider", &benchhal::OISRegisterProvider, static_cast<void*>(nullptr),
               static_cast<void*>(nullptr), static_cast<const CamX::NCSProviderCap*>(nullptr)),
      MakeCase("OISCreateI2CInfoCmd", &benchhal::OISCreateI2CInfoCmd, static_cast<void*>(nullptr), o.oisI2C.get(),
               0),
      MakeCase("ReadLensPositionData", &benchhal::ReadLensPositionData, static_cast<void*>(nullptr)),
      MakeCase("FormatLensPositionData", &benchhal::FormatLensPositionData, static_cast<void*>(nullptr),
               static_cast<CamX::OISLensPositionData*>(nullptr), o.lensBuffer.data(),
               static_cast<unsigned long>(o.lensBuffer.size())),
      MakeCase("PostGyroData", &benchhal::PostGyroData, static_cast<void*>(nullptr), CamX::NCSSensorType{1},
               std::ref(o.gyro.samples())),
      MakeVoidCase("CSLMessageHandler", &benchhal::CSLMessageHandler, static_cast<void*>(&o.session),
                   o.message.get()),
      MakeCase("ProcessCaptureRequest", &benchhal::ProcessCaptureRequest, static_cast<void*>(nullptr),
               o.request.get()),
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

struct Figures {
  double ns = 0;
  double allocations = 0;
  double logLines = 0;
};
// By benchmark name: the fastest repetition, in CPU time of the measuring
// thread (on a shared machine wall time also counts other programs' turns).
std::map<std::string, Figures> g_figures;

class TableReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Aggregate || run.aggregate_name != "min") continue;
      Figures& f = g_figures[run.run_name.function_name];
      f.ns = run.GetAdjustedCPUTime();
      if (auto it = run.counters.find("allocs"); it != run.counters.end()) f.allocations = it->second.value;
      if (auto it = run.counters.find("logs"); it != run.counters.end()) f.logLines = it->second.value;
    }
  }
};

template <typename Call>
void Measure(benchmark::State& state, Call call) {
  for (int i = 0; i < kWarmUpCalls; ++i) call();
  const uint64_t allocationsBefore = t_allocations;
  const uint64_t linesBefore = t_logLines;
  for (auto _ : state) call();
  state.counters["allocs"] = benchmark::Counter(static_cast<double>(t_allocations - allocationsBefore),
                                                benchmark::Counter::kAvgIterations);
  state.counters["logs"] =
      benchmark::Counter(static_cast<double>(t_logLines - linesBefore), benchmark::Counter::kAvgIterations);
}

// `call` is a std::function for the HAL and proxy cases (the same indirection
// on both sides of a comparison) and a plain function for RemediumLog.
template <typename Call>
void Register(const std::string& name, Call call) {
  benchmark::RegisterBenchmark(name.c_str(), [call](benchmark::State& state) { Measure(state, call); })
      ->Unit(benchmark::kNanosecond)
      ->Repetitions(3)
      ->ReportAggregatesOnly(true)
      ->ComputeStatistics("min", [](const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); });
}

// Loads the library on the phone, with or without the core.
std::unique_ptr<sim::HookLibrary> StartProcess(bool withCore) {
  ClearHooks();
  if (withCore) {
    sim::LinkDeviceFile(kCorePath, sim::BuildOutputDir() + "/bench.remedium.core.so");
  } else {
    sim::RemoveDeviceFile(kCorePath);
  }
  std::string error;
  auto library = sim::HookLibrary::Load(sim::HookLibraryPath(), &error);
  if (!library) {
    std::fprintf(stderr, "%s\n", error.c_str());
    std::exit(1);
  }
  return library;
}

void PrintTable(const std::vector<Case>& cases) {
  std::printf("\nPer call, CPU time, fastest of 3 repetitions (ns; allocations and log lines per call)\n");
  std::printf("%-30s %8s | %8s %8s %7s %6s %5s | %8s %8s %7s %6s\n", "HAL function", "direct", "proxy", "added",
              "ratio", "allocs", "logs", "no core", "added", "ratio", "allocs");
  for (const Case& c : cases) {
    const Figures direct = g_figures["direct/" + c.name];
    const Figures core = g_figures["core/" + c.name];
    const Figures none = g_figures["nocore/" + c.name];
    std::printf("%-30s %8.1f | %8.1f %8.1f %7.1f %6.2f %5.2f | %8.1f %8.1f %7.1f %6.2f\n", c.name.c_str(), direct.ns,
                core.ns, core.ns - direct.ns, core.ns / direct.ns, core.allocations - direct.allocations, core.logLines,
                none.ns, none.ns - direct.ns, none.ns / direct.ns, none.allocations - direct.allocations);
  }
  const Figures below = g_figures["log/below-level"];
  const Figures at = g_figures["log/at-level"];
  std::printf("%-30s %8s | %8.1f %8s %7s %6.2f %5.2f\n", "RemediumLog below the level", "", below.ns, "", "",
              below.allocations, below.logLines);
  std::printf("%-30s %8s | %8.1f %8s %7s %6.2f %5.2f\n", "RemediumLog at the level", "", at.ns, "", "",
              at.allocations, at.logLines);

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
}

// Each case CALLS times with callgrind counting; one dump per case. Prints
// "<dump number> <case>" per dump for scripts/bench.
int RunUnderCallgrind(const std::vector<Case>& cases, int calls) {
  int dump = 0;
  auto count = [&](const std::string& name, const std::function<void()>& call) {
    for (int i = 0; i < kWarmUpCalls; ++i) call();
    CALLGRIND_START_INSTRUMENTATION;
    CALLGRIND_ZERO_STATS;
    for (int i = 0; i < calls; ++i) call();
    CALLGRIND_DUMP_STATS_AT(name.c_str());
    CALLGRIND_STOP_INSTRUMENTATION;
    std::printf("%d %s\n", ++dump, name.c_str());
  };
  for (const Case& c : cases) count("direct/" + c.name, c.direct);
  for (bool withCore : {true, false}) {
    auto library = StartProcess(withCore);
    for (const Case& c : cases) {
      if (auto call = c.proxy(*library)) count((withCore ? "core/" : "nocore/") + c.name, call);
    }
  }
  count("log/below-level", LogBelowLevel);
  count("log/at-level", LogAtLevel);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  sim::Phone phone;  // a fresh device root; the override settings are absent
  hal::WriteKernelTable(std::vector<int64_t>(64, 0));
  HalObjects objects;
  const std::vector<Case> cases = Cases(objects);

  if (argc >= 3 && std::strcmp(argv[1], "--callgrind") == 0) return RunUnderCallgrind(cases, std::atoi(argv[2]));

  benchmark::Initialize(&argc, argv);
  TableReporter reporter;
  for (const Case& c : cases) Register("direct/" + c.name, c.direct);
  Register("log/below-level", LogBelowLevel);
  Register("log/at-level", LogAtLevel);
  for (bool withCore : {true, false}) {
    auto library = StartProcess(withCore);
    for (const Case& c : cases) {
      if (auto call = c.proxy(*library)) Register((withCore ? "core/" : "nocore/") + c.name, call);
    }
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::ClearRegisteredBenchmarks();
  }
  PrintTable(cases);
  benchmark::Shutdown();
  return 0;
}
