// Every proxy from several HAL threads at once: each thread is one camera
// (its own camera id, slot, sensor and EEPROM), the core is present, and a
// further thread keeps changing what the core answers, so that the proxies'
// paths with and without hook arguments interleave. The number of calls is
// bounded; the program is meant to run under ThreadSanitizer, which then
// reports any unsynchronised access of the library's shared state.
//
// ThreadSanitizer finds a race only between accesses that nothing orders, and
// the simulated platform takes a lock at nearly every call (its ShadowHook
// registry, HAL scripts, log, property store, framework fakes), which would
// order the threads' work as a side effect. So this program runs the proxies
// on a quiet platform: ShadowHook, the HAL functions and the log are its own
// stand-ins that synchronise nothing, and calls into the property store and
// the framework fakes are hidden from ThreadSanitizer (their locks order
// nothing, their own memory is not checked). What remains visible is the
// library's own memory and its own locks.
//
// Afterwards the totals must add up: every proxy left through its frame
// exactly once per call, and every HAL function that a proxy always calls was
// called once per call.
#include <dlfcn.h>

#include <array>
#include <atomic>
#include <latch>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <shadowhook.h>

#include "hook/src/corearguments.h"
#include "hook/src/hook.h"
#include "sim/framework/simframework.h"
#include "sim/hal/simhal.h"
#include "sim/hal/simlenspipelinehal.h"
#include "sim/hal/simsensorhal.h"
#include "sim/harness/catalogue.h"
#include "sim/harness/harness.h"
#include "sim/platform/simdevice.h"
#include "sim/platform/simproperties.h"
#include "sim/platform/simshadowhook.h"

// ---------------------------------------------------------------------------
// The quiet platform.

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define REMEDIUM_STRESS_TSAN 1
#endif
#endif

#if REMEDIUM_STRESS_TSAN
extern "C" void AnnotateIgnoreSyncBegin(const char*, int), AnnotateIgnoreSyncEnd(const char*, int),
    AnnotateIgnoreReadsBegin(const char*, int), AnnotateIgnoreReadsEnd(const char*, int),
    AnnotateIgnoreWritesBegin(const char*, int), AnnotateIgnoreWritesEnd(const char*, int);
#endif

namespace {

// While alive, ThreadSanitizer neither takes synchronisation from this thread
// nor checks its memory accesses: a call into the simulated platform.
struct HiddenFromTsan {
#if REMEDIUM_STRESS_TSAN
  HiddenFromTsan() {
    AnnotateIgnoreSyncBegin(__FILE__, __LINE__), AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
  }
  ~HiddenFromTsan() {
    AnnotateIgnoreWritesEnd(__FILE__, __LINE__), AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
    AnnotateIgnoreSyncEnd(__FILE__, __LINE__);
  }
#endif
};

template <typename Fn>
Fn* Next(const char* name) {
  static Fn* next = reinterpret_cast<Fn*>(dlsym(RTLD_NEXT, name));
  return next;
}

// The proxies, each named after the HAL function it is installed over: every
// catalogue entry with a HAL function (checked below), each called once a round.
// clang-format off
#define REMEDIUM_PROXIES(X) \
  X(GetStaticCaps) X(SensorProbe) X(InitializeSensorDevice) X(LoadSensorInitConfigCmd) \
  X(LoadSensorConfigCmds) X(SensorCreateAndSubmitCommand) X(CreateI2CInfoCmd) X(EEPROMDataProbe) \
  X(ProbeEEPROM) X(ReadEEPROMDevice) X(EEPROMVerifyChecksum) X(ActuatorData) X(OISRegisterProvider) \
  X(OISCreateI2CInfoCmd) X(ReadLensPositionData) X(FormatLensPositionData) X(PostGyroData) \
  X(CSLMessageHandler) X(ProcessCaptureRequest)
// clang-format on

enum HalFunction {
#define REMEDIUM_ENUM(name) k##name,
  REMEDIUM_PROXIES(REMEDIUM_ENUM)
#undef REMEDIUM_ENUM
      kHalFunctions
};

// Per-thread counts, summed after the threads have joined.
struct ThreadCounts {
  std::array<int, kHalFunctions> halCalls{};
  int pops = 0;
};
thread_local ThreadCounts t_counts;

// The HAL function a proxy of type R(Args...) is installed over: counts its
// call on this thread and succeeds (0, or nothing for a void function).
template <HalFunction F, typename R, typename... Args>
void* QuietHal(R (*)(Args...)) {
  return reinterpret_cast<void*>(+[](Args...) -> R {
    ++t_counts.halCalls[F];
    return R();
  });
}

// Proxy -> HAL function, filled before the threads start and only read after.
std::map<void*, void*> g_previous;

}  // namespace

// A call into the simulated platform, hidden from ThreadSanitizer.
#define REMEDIUM_HIDDEN_SHIM(result, name, mangled, params, args) \
  result name params {                                            \
    [[maybe_unused]] HiddenFromTsan hidden;                       \
    return Next<result params>(mangled) args;                     \
  }

// Exported from this program, so that the hook library binds to them.
extern "C" {
void* shadowhook_get_prev_func(void* func) {
  auto it = g_previous.find(func);
  return it == g_previous.end() ? nullptr : it->second;
}
shadowhook_mode_t shadowhook_get_mode(void) { return SHADOWHOOK_MODE_SHARED; }
void shadowhook_pop_stack(void*) { ++t_counts.pops; }

int __android_log_print(int, const char*, const char*, ...) { return 1; }

REMEDIUM_HIDDEN_SHIM(int, property_get, "property_get", (const char* key, char* value, const char* fallback),
                     (key, value, fallback))
REMEDIUM_HIDDEN_SHIM(int32_t, property_get_int32, "property_get_int32", (const char* key, int32_t fallback),
                     (key, fallback))
REMEDIUM_HIDDEN_SHIM(int, property_set, "property_set", (const char* key, const char* value), (key, value))
}  // extern "C"

// The framework fakes' entry points, which the core and message-centre
// libraries call.
namespace sim::framework::shim {
REMEDIUM_HIDDEN_SHIM(
    bool, MessageCenterSend,
    "_ZN3sim9framework4shim17MessageCenterSendERKNS0_20MessageCenterRequestEPNS0_18MessageCenterReplyE",
    (const MessageCenterRequest& request, MessageCenterReply* reply), (request, reply))
REMEDIUM_HIDDEN_SHIM(bool, IsSwitchOpened, "_ZN3sim9framework4shim14IsSwitchOpenedEi", (int32_t kind), (kind))
REMEDIUM_HIDDEN_SHIM(void, ProtectionCallback, "_ZN3sim9framework4shim18ProtectionCallbackERKNS0_12CoreCallbackE",
                     (const CoreCallback& callback), (callback))
REMEDIUM_HIDDEN_SHIM(
    std::vector<std::string>, GetHookArguments,
    "_ZN3sim9framework4shim16GetHookArgumentsERKNSt3__112basic_stringIcNS2_11char_traitsIcEENS2_9allocatorIcEEEE",
    (const std::string& hookName), (hookName))
REMEDIUM_HIDDEN_SHIM(void, NotifyHookMessage, "_ZN3sim9framework4shim17NotifyHookMessageERKNS0_16CoreNotificationE",
                     (const CoreNotification& notification), (notification))
REMEDIUM_HIDDEN_SHIM(
    void, RecordProbeMessage,
    "_ZN3sim9framework4shim18RecordProbeMessageERKNSt3__112basic_stringIcNS2_11char_traitsIcEENS2_9allocatorIcEEEEb",
    (const std::string& name, bool result), (name, result))
#undef REMEDIUM_HIDDEN_SHIM
}  // namespace sim::framework::shim

// The HAL's vendor-tag lookup: the record-control tag is where the simulated
// HAL would put it; nothing else is known.
CamxResult CamX::VendorTagManager::QueryVendorTagLocation(const char* pSectionName, const char* pTagName,
                                                          uint32_t* pTagLocation) {
  if (std::string_view(pSectionName) != "velora.video" || std::string_view(pTagName) != "recordControl") return 1;
  *pTagLocation = sim::hal::kRecordControlTagLocation;
  return 0;
}

namespace {

namespace fw = sim::framework;
namespace hal = sim::hal;
using ::testing::AllOf;
using ::testing::Ge;
using ::testing::Le;

constexpr int kCameras = 4;
constexpr int kProxyCallsPerRound = kHalFunctions;

// Rounds per camera thread: bounded, and small enough for a sanitizer or an
// emulator.
constexpr int kRounds = 200;

// The proxies, resolved by their exported names, typed as the library declares them.
struct Proxies {
#define REMEDIUM_MEMBER(name) decltype(&CamX::name##Hook) name = nullptr;
  REMEDIUM_PROXIES(REMEDIUM_MEMBER)
#undef REMEDIUM_MEMBER
  decltype(&CamX::SetErrorFrameworkId) SetErrorFrameworkId = nullptr;
};

class StressTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fw::InstallCore();
    fw::InstallMessageCenter();
    sim::WriteDeviceFile("/odm/etc/camera/camxoverridesettings.txt",
                         "SensorModuleRetryTimes=3\nsensorModuleNumber=2\n");
    hal::WriteKernelTable(std::vector<int64_t>(64, 0));
    sim::PresetProperty("persist.vendor.camera.cloud.remedium.modswitch", "-1");  // every module on
    for (int camera = 0; camera < kCameras; ++camera) {
      fw::SetSensorType(SensorName(camera), "type" + std::to_string(camera));
      fw::SetMostProbedSensor("type" + std::to_string(camera), SensorName(camera), 100);
    }
    std::string error;
    m_library = m_phone.StartCameraProcess(&error);
    ASSERT_NE(m_library, nullptr) << error;
    // What the core's installer does: each proxy replaces its HAL function.
#define REMEDIUM_INSTALL(name)                                                                      \
  m_proxies.name = m_library->Proxy<std::remove_pointer_t<decltype(m_proxies.name)>>(#name "Hook"); \
  ASSERT_NE(m_proxies.name, nullptr) << #name;                                                      \
  g_previous[reinterpret_cast<void*>(m_proxies.name)] = QuietHal<k##name>(m_proxies.name);
    REMEDIUM_PROXIES(REMEDIUM_INSTALL)
#undef REMEDIUM_INSTALL
    m_proxies.SetErrorFrameworkId = m_library->Proxy<void(unsigned int, int) noexcept>("SetErrorFrameworkId");
    ASSERT_NE(m_proxies.SetErrorFrameworkId, nullptr);
  }

  void TearDown() override { g_previous.clear(); }

  // Counts a result that breaks a proxy's own promise.
  void Check(bool kept) {
    if (!kept) m_violations.fetch_add(1, std::memory_order_relaxed);
  }

  static std::string SensorName(int camera) { return "s5k" + std::to_string(camera) + "_wide"; }
  static uint32_t SlotOf(int camera) { return static_cast<uint32_t>(camera + 4); }

  // One HAL thread: camera `camera` runs through bring-up, EEPROM, lens,
  // gyro and pipeline calls, round after round.
  void CameraThread(int camera, int rounds, std::latch& start) {
    const auto cameraId = static_cast<uint32_t>(camera);
    hal::Object caps = hal::MakeStaticCaps(SlotOf(camera));
    hal::SensorProbeObject probe(SensorName(camera), static_cast<uint16_t>(camera));
    hal::SensorNodeObject node(cameraId);
    hal::SensorI2CInfoObject sensorI2C(0x18);
    hal::EepromDataObject eeprom(static_cast<uint16_t>(camera), SensorName(camera));
    hal::HwSensorInfoObject eepromInfo(SensorName(camera) + "_eeprom");
    hal::ActuatorDriverDataObject actuator(SensorName(camera) + "_actuator", 0x18);
    hal::OISI2CInfoObject oisI2C(0x18);
    hal::CaptureRequestObject request;
    request.SetRecordControl(0).SetBytes(0x10000, {1, 2, 3});
    std::vector<unsigned char> checksumData(1024, 0xAB);
    std::vector<unsigned char> lensBuffer(64, 0);
    int session = camera;

    start.arrive_and_wait();
    for (int round = 0; round < rounds; ++round) {
      Check(m_proxies.GetStaticCaps(nullptr, static_cast<CamX::SensorModuleStaticCaps*>(caps.get()), nullptr, nullptr,
                                    cameraId) == 0);
      m_proxies.SensorProbe(probe.get(), nullptr, nullptr);
      Check(m_proxies.InitializeSensorDevice(node.get()) == 0);
      Check(m_proxies.LoadSensorInitConfigCmd(node.get()) == 0);
      Check(m_proxies.LoadSensorConfigCmds(node.get()) == 0);
      const auto opcode = static_cast<CSLPacketOpcodesSensor>(round % 2 == 0 ? 2 : 4);
      Check(m_proxies.SensorCreateAndSubmitCommand(node.get(), 0, CamX::I2CRegSettingType{}, opcode, 0, 0, nullptr) ==
            0);
      m_proxies.CreateI2CInfoCmd(nullptr, sensorI2C.get(), 0);
      m_proxies.EEPROMDataProbe(eeprom.get());
      m_proxies.ProbeEEPROM(nullptr, eepromInfo.get(), nullptr);
      m_proxies.ReadEEPROMDevice(eeprom.get());
      checksumData.assign(checksumData.size(), 0xAB);
      m_proxies.EEPROMVerifyChecksum(nullptr, checksumData.data(), static_cast<int>(checksumData.size()));
      Check(checksumData[0] == 0 && checksumData[990] == 0 && checksumData[1] == 0xAB);
      m_proxies.ActuatorData(nullptr, actuator.get());
      Check(m_proxies.OISRegisterProvider(nullptr, nullptr, nullptr) == 1);
      m_proxies.OISCreateI2CInfoCmd(nullptr, oisI2C.get(), 0);
      m_proxies.ReadLensPositionData(nullptr);
      Check(m_proxies.FormatLensPositionData(nullptr, nullptr, lensBuffer.data(), lensBuffer.size()) == 1);
      hal::SensorEventBatch batch({100000000 + round, 200000000 + round, 300000000 + round});
      m_proxies.PostGyroData(nullptr, CamX::NCSSensorType{1}, batch.samples());
      hal::CSLMessageObject message(0, static_cast<uint64_t>(40 + round % 4));
      m_proxies.CSLMessageHandler(&session, message.get());
      Check(m_proxies.ProcessCaptureRequest(nullptr, request.get()) == 0);
      m_proxies.SetErrorFrameworkId(SlotOf(camera), round % 2);
    }
    std::lock_guard<std::mutex> lock(m_totalsMutex);  // after the last call: orders nothing measured
    for (size_t i = 0; i < m_totals.halCalls.size(); ++i) m_totals.halCalls[i] += t_counts.halCalls[i];
    m_totals.pops += t_counts.pops;
  }

  // The core's answers change while the cameras run.
  static void CoreThread(const std::atomic<bool>& done, std::latch& start) {
    start.arrive_and_wait();
    for (int step = 0; !done.load(std::memory_order_acquire); ++step) {
      const bool on = step % 2 == 0;
      auto set = [on](const char* hook, std::vector<std::string> arguments) {
        fw::SetHookArguments(hook, on ? std::move(arguments) : std::vector<std::string>{});
      };
      namespace arg = CamX::coreargument;
      set(arg::kCSLMessageHandler, {"42"});
      set(arg::kActuatorI2CError, {"s5k1"});
      set(arg::kReadEEPROMDeviceFail, {"s5k2"});
      set(arg::kProbeEEPROM, {"s5k3"});
      set(arg::kEEPROMI2C, {"24"});
      set(arg::kReadLensPositionData, {"0", "7"});
      set(arg::kSensorProbeProtection, {step % 4 == 0 ? "s5k0" : ""});
      fw::SetSwitch(2, on);
      std::this_thread::yield();
    }
  }

  sim::Phone m_phone;
  sim::HookLibrary* m_library = nullptr;
  Proxies m_proxies{};
  std::atomic<int> m_violations{0};
  std::mutex m_totalsMutex;
  ThreadCounts m_totals;
};

// A proxy added to the catalogue is added here too, or this fails.
TEST(StressProxies, AreTheCataloguesProxies) {
  const std::set<std::string> listed = {
#define REMEDIUM_NAME(name) #name "Hook",
      REMEDIUM_PROXIES(REMEDIUM_NAME)
#undef REMEDIUM_NAME
  };
  std::set<std::string> catalogue;
  for (const sim::CatalogueEntry& entry : sim::Catalogue()) {
    if (entry.halFunction != nullptr) catalogue.insert(entry.name);
  }
  EXPECT_EQ(listed, catalogue);
}

TEST_F(StressTest, EveryProxyFromSeveralCamerasAtOnce) {
  std::latch start(kCameras + 1);
  std::atomic<bool> done{false};
  std::thread core(CoreThread, std::cref(done), std::ref(start));
  std::vector<std::thread> cameras;
  for (int camera = 0; camera < kCameras; ++camera) {
    cameras.emplace_back([this, camera, &start] { CameraThread(camera, kRounds, start); });
  }
  for (std::thread& thread : cameras) thread.join();
  done.store(true, std::memory_order_release);
  core.join();

  EXPECT_EQ(m_violations.load(), 0);
  const int calls = kCameras * kRounds;
  // Every proxy call left through its frame exactly once, in shared mode.
  EXPECT_EQ(m_totals.pops, calls * kProxyCallsPerRound);
  // The HAL functions a proxy always calls, once per call.
  for (HalFunction function :
       {kGetStaticCaps, kLoadSensorInitConfigCmd, kSensorCreateAndSubmitCommand, kCreateI2CInfoCmd, kEEPROMDataProbe,
        kProbeEEPROM, kEEPROMVerifyChecksum, kActuatorData, kOISCreateI2CInfoCmd, kReadLensPositionData,
        kFormatLensPositionData, kPostGyroData, kCSLMessageHandler, kProcessCaptureRequest}) {
    EXPECT_EQ(m_totals.halCalls[function], calls) << "HAL function #" << function;
  }
  EXPECT_EQ(m_totals.halCalls[kOISRegisterProvider], 0);
  // Those a proxy may skip or repeat by its rules.
  EXPECT_THAT(m_totals.halCalls[kSensorProbe], AllOf(Ge(calls), Le(2 * calls)));
  EXPECT_THAT(m_totals.halCalls[kInitializeSensorDevice], Le(calls));
  EXPECT_THAT(m_totals.halCalls[kLoadSensorConfigCmds], Le(calls));
  EXPECT_THAT(m_totals.halCalls[kReadEEPROMDevice], Le(calls));
}

}  // namespace
