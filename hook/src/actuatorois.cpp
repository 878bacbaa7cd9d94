// The lens actuator and OIS proxies: the core's fault injection on the
// actuator's I2C slave address and on lens position reads, and the fixed
// results of OIS provider registration, OIS I2C command creation and lens
// position formatting.
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "client/interface/remediumclient.h"
#include "hook/src/camxlayout.h"
#include "hook/src/corearguments.h"
#include "hook/src/globals.h"
#include "hook/src/hook.h"
#include "hook/src/hooklogsites.h"
#include "hook/src/probeinfo.h"
#include "hook/src/proxyframe.h"

namespace CamX {

namespace {

// The two I2C slave addresses the core can move a device between: the usual
// one becomes the other; anything else becomes the usual one.
constexpr uint32_t kUsualSlaveAddress = 0x18;
constexpr uint32_t kOtherSlaveAddress = 0x66;

constexpr uint32_t ToggleSlaveAddress(uint32_t address) {
  return address == kUsualSlaveAddress ? kOtherSlaveAddress : kUsualSlaveAddress;
}
static_assert(ToggleSlaveAddress(0x18) == 0x66 && ToggleSlaveAddress(0x66) == 0x18 && ToggleSlaveAddress(0x20) == 0x18);

}  // namespace

void ActuatorDataHook(void* pThis, ActuatorDriverData* pActuatorDriverData) noexcept {
  CAMX_PROXY_FRAME(frame);
  const std::vector<std::string> arguments = RemediumClient::GetHookArguments(coreargument::kActuatorI2CError);
  for (const std::string& argument : arguments) {
    // A record without a name is logged as bionic prints a null "%s" and
    // matches nothing.
    const char* actuatorName = Layout::Read(pActuatorDriverData, Layout::kActuatorDriverDataName);
    REMEDIUM_LOG(ActuatorNames, argument.c_str(), actuatorName != nullptr ? actuatorName : "(null)");
    if (argument.empty() || !CheckIsCameraName(argument)) continue;
    if (actuatorName == nullptr || strstr(actuatorName, argument.c_str()) == nullptr) continue;
    // Every match toggles again: two matching arguments restore the address.
    const auto address = static_cast<uint16_t>(
        ToggleSlaveAddress(Layout::Read(pActuatorDriverData, Layout::kActuatorDriverDataSlaveAddress)));
    Layout::Write(pActuatorDriverData, Layout::kActuatorDriverDataSlaveAddress, address);
    REMEDIUM_LOG(ActuatorAddressChanged, address);
  }
  // Reported on the first call whether or not anything matched.
  NotifyHookOnce(hookNotified.actuatorData, "ActuatorDataHook");
  frame.CallPrevious(&ActuatorDataHook, pThis, pActuatorDriverData);
  REMEDIUM_LOG(ActuatorAddress, Layout::Read(pActuatorDriverData, Layout::kActuatorDriverDataSlaveAddress));
}

CamxResult OISRegisterProviderHook([[maybe_unused]] void* pThis, [[maybe_unused]] void* pUnusedArg,
                                   [[maybe_unused]] const NCSProviderCap* pProviderCap) noexcept {
  CAMX_PROXY_FRAME(frame);
  // OK: the HAL's registration never runs; the frame is still left properly.
  constexpr CamxResult kResult = 1;
  NotifyHookOnce(hookNotified.oisRegisterProvider, "OISRegisterProviderHook");
  REMEDIUM_LOG(OisProviderResult, kResult);
  return kResult;
}

CamxResult OISCreateI2CInfoCmdHook(void* pThis, CSLOISI2CInfo* pI2CInfo, int parameter) noexcept {
  CAMX_PROXY_FRAME(frame);
  const CamxResult result = frame.CallPrevious(&OISCreateI2CInfoCmdHook, pThis, pI2CInfo, parameter);
  // Unconditional: the address the HAL just built is moved on every call.
  const uint32_t address = ToggleSlaveAddress(Layout::Read(pI2CInfo, Layout::kOISI2CInfoSlaveAddress));
  Layout::Write(pI2CInfo, Layout::kOISI2CInfoSlaveAddress, address);
  NotifyHookOnce(hookNotified.oisCreateI2CInfoCmd, "OISCreateI2CInfoCmdHook");
  REMEDIUM_LOG(OisI2CSlaveAddress, address);
  return result;
}

CamxResult ReadLensPositionDataHook(void* pThis) noexcept {
  CAMX_PROXY_FRAME(frame);
  // Arguments: the delay in microseconds, then the result to return instead
  // of the HAL's. Non-numbers read as 0, which turns either off.
  int delay = 0;
  int replacement = 0;
  {
    const std::vector<std::string> arguments = RemediumClient::GetHookArguments(coreargument::kReadLensPositionData);
    if (!arguments.empty()) {
      delay = atoi(arguments[0].c_str());
      if (arguments.size() >= 2) replacement = atoi(arguments[1].c_str());
    }
  }
  if (delay != 0) {
    // OK: a negative delay is taken as the unsigned count it converts to, as
    // usleep's parameter type says.
    usleep(static_cast<useconds_t>(delay));
    NotifyHookOnce(hookNotified.readLensPositionDataDelay, "ReadLensPositionDataHook");
  }
  const CamxResult result = frame.CallPrevious(&ReadLensPositionDataHook, pThis);
  if (replacement == 0) return result;
  // Its own flag: the same name is reported once for the delay and once for
  // the replacement.
  NotifyHookOnce(hookNotified.readLensPositionDataReplace, "ReadLensPositionDataHook");
  return replacement;
}

CamxResult FormatLensPositionDataHook(void* pThis, OISLensPositionData* pLensPositionData, unsigned char* pBuffer,
                                      unsigned long bufferSize) noexcept {
  CAMX_PROXY_FRAME(frame);
  // The HAL's result is ignored.
  frame.CallPrevious(&FormatLensPositionDataHook, pThis, pLensPositionData, pBuffer, bufferSize);
  return 1;
}

}  // namespace CamX
