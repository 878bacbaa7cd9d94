// remedium-sim: runs the real hook library on a simulated phone.
//
// For now a short smoke run: the camera process starts with the framework
// core installed, the HAL queries the static capabilities of its cameras, and
// the library's log lines and the slot table it built are shown.
#include <cstdio>
#include <string>

#include "harness.h"
#include "simframework.h"
#include "simhal.h"
#include "simlog.h"
#include "simshadowhook.h"

namespace {

using GetStaticCapsFn = CamxResult(void*, CamX::SensorModuleStaticCaps*, CSLSensorCapability*,
                                   CamX::TuningDataManager*, unsigned int);

int RunSmoke() {
  sim::Phone phone;
  sim::framework::InstallCore();
  std::string error;
  sim::HookLibrary* library = phone.StartCameraProcess(&error);
  if (library == nullptr) {
    std::fprintf(stderr, "remedium-sim: %s\n", error.c_str());
    return 2;
  }
  auto* getStaticCaps = library->Proxy<GetStaticCapsFn>("GetStaticCapsHook");
  if (getStaticCaps == nullptr) {
    std::fprintf(stderr, "remedium-sim: the hook library does not export CamX::GetStaticCapsHook\n");
    return 2;
  }
  std::printf("remedium-sim: %s loaded on a simulated phone at %s\n", sim::HookLibraryPath().c_str(),
              phone.root().c_str());
  sim::SetLogEcho(true);
  const struct {
    unsigned int cameraId;
    uint32_t slotId;
  } kCameras[] = {{0, 0}, {1, 2}, {2, 1}, {16, 3}};
  int failures = 0;
  for (const auto& camera : kCameras) {
    sim::hal::Object caps = sim::hal::MakeStaticCaps(camera.slotId);
    const CamxResult result = getStaticCaps(nullptr, static_cast<CamX::SensorModuleStaticCaps*>(caps.get()),
                                            nullptr, nullptr, camera.cameraId);
    failures += result != 0 ? 1 : 0;
  }
  sim::SetLogEcho(false);
  std::printf("HAL calls: %d GetStaticCaps, hook stack pops: %zu, log lines: %zu\n",
              sim::hal::CallCount("GetStaticCaps"), sim::PoppedAddresses().size(), sim::LogLines().size());
  std::printf("%s\n", failures == 0 ? "smoke run: ok" : "smoke run: the HAL saw a failure");
  return failures == 0 ? 0 : 1;
}

}  // namespace

int main() { return RunSmoke(); }
