// Every line the library logs through RemediumLog, in one table: its level,
// the source file and line its prefix names, the function it names and its
// format. The maker's log tools match these prefixes and texts as they stand,
// so a site's file, line and function are fixed here and do not follow the
// code around: moving or reformatting code never changes what is logged.
//
// A site is logged with REMEDIUM_LOG(Name, args...), which passes the site's
// format as a string constant, so the compiler checks the arguments against
// it. Sites that differ only in line, level or function are separate rows.
#pragma once

#include <cstddef>

#include "client/interface/remediumlog.h"

// The paths the prefixes name. The hooks' lines name "hook.cpp", whichever
// file the code sits in.
inline constexpr char kHookSourceFile[] = "hook/src/hook.cpp";
inline constexpr char kRemediumClientSourceFile[] = "client/interface/remediumclient.h";
inline constexpr char kImageSensorStateSourceFile[] = "core/model/monitor/interface/imagesensorstate.cpp";

// SITE(Name, level, file, line, function, format)
// clang-format off
#define REMEDIUM_LOG_SITES(SITE) \
  /* Core client: a missing core, per wrapper and at load. */ \
  SITE(LoadRemediumNullCore, kLogError, kRemediumClientSourceFile, 90, "LoadRemedium", "m_pRemediumCore is NULL") \
  SITE(NotifyHookMessageNullCore, kLogError, kRemediumClientSourceFile, 111, "NotifyHookMessage", "m_pRemediumCore is NULL") \
  SITE(GetHookArgumentsNullCore, kLogError, kRemediumClientSourceFile, 131, "GetHookArguments", "m_pRemediumCore is NULL") \
  SITE(ProtectionCallbackNullCore, kLogError, kRemediumClientSourceFile, 152, "ProtectionCallback", "m_pRemediumCore is NULL") \
  SITE(IsSwitchOpenedNullCore, kLogError, kRemediumClientSourceFile, 191, "IsSwitchOpened", "m_pRemediumCore is NULL") \
  SITE(RecordProbeMessageNullCore, kLogError, kRemediumClientSourceFile, 212, "RecordProbeMessage", "m_pRemediumCore is NULL") \
  /* Image sensor state record. */ \
  SITE(StateUpdateRead, kLogVerbose, kImageSensorStateSourceFile, 100, "UpdateImageSensorStateProperty", "camera id: %d, stage: %s, result: %s, property: %s") \
  SITE(StateUpdateWrite, kLogVerbose, kImageSensorStateSourceFile, 138, "UpdateImageSensorStateProperty", "set property: %s") \
  SITE(StateGetValue, kLogInfo, kImageSensorStateSourceFile, 174, "GetImageSensorState", "property key:%s  string: %s") \
  SITE(StateGetMatch, kLogVerbose, kImageSensorStateSourceFile, 185, "GetImageSensorState", "match: %s, %s, %s, %s") \
  /* Override-settings reader. */ \
  SITE(SettingsOpenFailure, kLogVerbose, kHookSourceFile, 20, "ParseConfigFile", "Failed to open file: %s") \
  /* Static caps. */ \
  SITE(StaticCapsSlot, kLogInfo, kHookSourceFile, 17, "GetStaticCapsHook", "camera id: %d, slot id: %d") \
  /* Probe bookkeeping and EEPROM retry decisions. */ \
  SITE(LastRetryVerdict, kLogInfo, kHookSourceFile, 44, "IsLastRetryTimes", "Camera name: %s, rerty times: %d, probeFailCount: %d, last retry times: %d") \
  SITE(EepromLastRetryVerdict, kLogInfo, kHookSourceFile, 51, "IsLastEEPROMProbeRetryTimes", "Camera name: %s, rerty times: %d, probeFailCount: %d, last retry times: %d") \
  SITE(EepromBypassProbeCount, kLogInfo, kHookSourceFile, 62, "IsLastEEPROMProbeRetryBypassSensor", "probeCount: %d") \
  SITE(EepromBypassVerdict, kLogInfo, kHookSourceFile, 74, "IsLastEEPROMProbeRetryBypassSensor", "Camera name: %s, rerty times: %d, probeFailCount: %d, probeSuccessCount: %d, last retry times: %d") \
  /* Kernel probe-result channel, per operation. */ \
  SITE(SetProbeResultOpenFailure, kLogInfo, kHookSourceFile, 55, "SetSensorProbeResult", "Failed to open /sys/module/camera/parameters/sensor_apply_settings_control: errnoStr: %s") \
  SITE(SetProbeResultReadText, kLogInfo, kHookSourceFile, 64, "SetSensorProbeResult", "read sensor_apply_settings_control: %s") \
  SITE(SetProbeResultWrite, kLogInfo, kHookSourceFile, 88, "SetSensorProbeResult", "set sensor_apply_settings_control: %s, size: %d") \
  SITE(ReadProbeResultOpenFailure, kLogInfo, kHookSourceFile, 55, "ReadSensorProbeResult", "Failed to open /sys/module/camera/parameters/sensor_apply_settings_control: errnoStr: %s") \
  SITE(ReadProbeResultReadText, kLogInfo, kHookSourceFile, 64, "ReadSensorProbeResult", "read sensor_apply_settings_control: %s") \
  SITE(ResetProbeResultOpenFailure, kLogInfo, kHookSourceFile, 109, "ResetSensorProbeResult", "Failed to open /sys/module/camera/parameters/sensor_apply_settings_control: errnoStr: %s") \
  SITE(ResetProbeResultReadText, kLogInfo, kHookSourceFile, 120, "ResetSensorProbeResult", "read sensor_apply_settings_control: %s") \
  SITE(ResetProbeResultWrite, kLogInfo, kHookSourceFile, 127, "ResetSensorProbeResult", "set sensor_apply_settings_control: %s") \
  SITE(InitResultOpenFailure, kLogInfo, kHookSourceFile, 734, "ReadSensorInitResult", "Failed to open /sys/module/camera/parameters/sensor_apply_settings_control: errnoStr: %s") \
  SITE(InitResultReadText, kLogInfo, kHookSourceFile, 724, "ReadSensorInitResult", "read sensor_apply_settings_control: %s") \
  /* Sensor probe. */ \
  SITE(ProbeLastResult, kLogInfo, kHookSourceFile, 37, "ProbeCameraNumber", "Probe result: %s, %d") \
  SITE(ProbeProtectionArgument, kLogInfo, kHookSourceFile, 79, "SensorProbeHook", "arg: %s") \
  SITE(ProbeProtectionSensorName, kLogInfo, kHookSourceFile, 80, "SensorProbeHook", "sensor name: %s") \
  SITE(ProbeSettings, kLogInfo, kHookSourceFile, 93, "SensorProbeHook", "sensorModuleRetryTimes: %d, sensorModuleNumber: %d") \
  SITE(ProbeSettingsMissing, kLogError, kHookSourceFile, 98, "SensorProbeHook", "Failed to get cameraid or error retry times: sensorModuleRetryTimes: %d, sensorModuleNumber: %d") \
  SITE(ProbeSensorUsage, kLogInfo, kHookSourceFile, 105, "SensorProbeHook", "sensor name: %s,  sensor type: %s, frequentlyUsedSensor: %d, neverBeenSuccessfullyProbed: %d") \
  SITE(ProbeMostProbed, kLogInfo, kHookSourceFile, 107, "SensorProbeHook", "output sensor name: %s, record count: %d") \
  SITE(ProbeCount, kLogInfo, kHookSourceFile, 112, "SensorProbeHook", "Get camera name:%s, probeCount: %d") \
  SITE(ProbeOutcome, kLogInfo, kHookSourceFile, 152, "SensorProbeHook", "probe sensor: %s, slot id: %d kmd result: %d, umd result: %d") \
  /* Bring-up. */ \
  SITE(InitDeviceChanged, kLogInfo, kHookSourceFile, 1599, "InitializeSensorDeviceHook", "hook InitializeSensorDeviceHook, camera id: %d, change result:%d to: %d, set init state: %d") \
  SITE(InitDeviceSkip, kLogInfo, kHookSourceFile, 1576, "InitializeSensorDeviceHook", "Skip InitializeSensorDeviceHook, camera id: %d") \
  SITE(InitConfigChanged, kLogInfo, kHookSourceFile, 778, "LoadSensorInitConfigCmdHook", "hook LoadSensorInitConfigCmd, camera id: %d, change result:%d, kernelInitResult: %d to: %d") \
  SITE(ConfigCmdsSkip, kLogInfo, kHookSourceFile, 1507, "LoadSensorConfigCmdsHook", "Skip LoadSensorConfigCmdsHook, camera id: %d") \
  /* The text names the init-settings hook; the log tools match it so. */ \
  SITE(ConfigCmdsChanged, kLogInfo, kHookSourceFile, 1528, "LoadSensorConfigCmdsHook", "hook LoadSensorInitConfigCmd, camera id: %d, change result:%d to: %d") \
  SITE(SubmitInitialConfigCode, kLogInfo, kHookSourceFile, 674, "SensorCreateAndSubmitCommandHook", "In code %d") \
  SITE(SubmitInitialConfigChanged, kLogInfo, kHookSourceFile, 676, "SensorCreateAndSubmitCommandHook", "hook CreateAndSubmitCommand, change result: %d to: %d, pThis: %p") \
  SITE(SubmitConfigCode, kLogInfo, kHookSourceFile, 684, "SensorCreateAndSubmitCommandHook", "In code %d") \
  SITE(SubmitConfigChanged, kLogInfo, kHookSourceFile, 686, "SensorCreateAndSubmitCommandHook", "hook CreateAndSubmitCommand, change result: %d to: %d, pThis: %p") \
  SITE(SensorI2CSlaveAddress, kLogInfo, kHookSourceFile, 530, "CreateI2CInfoCmdHook", "slaveAddr:0x%x") \
  /* EEPROM. */ \
  SITE(EepromProbeRecorded, kLogInfo, kHookSourceFile, 41, "SetProbeEEPROMInfoMap", "Camera name: %s, probeCount: %d") \
  SITE(EepromDataSettings, kLogInfo, kHookSourceFile, 72, "EEPROMDataProbeHook", "sensorModuleRetryTimes: %d, sensorModuleNumber: %d, cameraId: %d") \
  SITE(EepromDataSensorUsage, kLogInfo, kHookSourceFile, 84, "EEPROMDataProbeHook", "camera id: %d, probe time: %d, sensor name: %s,  sensor type: %s, frequentlyUsedSensor: %d, neverBeenSuccessfullyProbed: %d output sensor name: %s, record count: %d") \
  SITE(EepromDataOutcome, kLogInfo, kHookSourceFile, 94, "EEPROMDataProbeHook", "camera id: %d, sensor name: %s, result: %d") \
  SITE(ProbeEepromArgument, kLogInfo, kHookSourceFile, 105, "ProbeEEPROMHook", "arg: %s") \
  SITE(ProbeEepromOutcome, kLogInfo, kHookSourceFile, 110, "ProbeEEPROMHook", "Probe EEPROM name: %s, result: %d") \
  SITE(ReadEepromArgument, kLogInfo, kHookSourceFile, 122, "ReadEEPROMDeviceHook", "arg: %s") \
  SITE(ReadEepromSensorName, kLogInfo, kHookSourceFile, 123, "ReadEEPROMDeviceHook", "sensor name: %s") \
  /* Lens and OIS. */ \
  SITE(ActuatorNames, kLogInfo, kHookSourceFile, 45, "ActuatorDataHook", "camera name: %s, actuator name: %s") \
  SITE(ActuatorAddressChanged, kLogInfo, kHookSourceFile, 52, "ActuatorDataHook", "change slave address: 0x%x") \
  SITE(ActuatorAddress, kLogInfo, kHookSourceFile, 58, "ActuatorDataHook", "slave address: 0x%x") \
  SITE(OisProviderResult, kLogInfo, kHookSourceFile, 67, "OISRegisterProviderHook", "change result to: %d") \
  SITE(OisI2CSlaveAddress, kLogInfo, kHookSourceFile, 78, "OISCreateI2CInfoCmdHook", "slaveAddr:0x%x") \
  /* Gyro. */ \
  SITE(GyroTimestampModified, kLogInfo, kHookSourceFile, 42, "PostGyroDataHook", "modify timestamp to: %lld") \
  SITE(GyroSampleTimestamp, kLogInfo, kHookSourceFile, 45, "PostGyroDataHook", "rSensorDataList[%d] timestamp: %lld")
// clang-format on

struct LogSite {
  const char* name;
  int level;
  const char* file;
  int line;
  const char* function;
  const char* format;
};

namespace logsite {

#define REMEDIUM_LOG_SITE_FORMAT(Name, level, file, line, function, format) \
  inline constexpr char Name##Format[] = format;
REMEDIUM_LOG_SITES(REMEDIUM_LOG_SITE_FORMAT)
#undef REMEDIUM_LOG_SITE_FORMAT

#define REMEDIUM_LOG_SITE_RECORD(Name, level, file, line, function, format) \
  inline constexpr LogSite k##Name{#Name, level, file, line, function, Name##Format};
REMEDIUM_LOG_SITES(REMEDIUM_LOG_SITE_RECORD)
#undef REMEDIUM_LOG_SITE_RECORD

// Every site, in table order.
#define REMEDIUM_LOG_SITE_ENTRY(Name, level, file, line, function, format) k##Name,
inline constexpr LogSite kAll[] = {REMEDIUM_LOG_SITES(REMEDIUM_LOG_SITE_ENTRY)};
#undef REMEDIUM_LOG_SITE_ENTRY

// True when `format` converts exactly one argument, a "%s" (a "%%" converts
// none): the sites that LogSiteText logs take one string.
consteval bool TakesOneString(const char* format) {
  int strings = 0;
  for (const char* p = format; *p != '\0'; ++p) {
    if (*p != '%') continue;
    ++p;
    if (*p == '%') continue;
    if (*p != 's') return false;
    ++strings;
  }
  return strings == 1;
}

}  // namespace logsite

// Logs site `Name` of the table with the format's arguments.
// A line below the level returns before its arguments are evaluated; no
// site's arguments have side effects.
#define REMEDIUM_LOG(Name, ...)                                                                     \
  do {                                                                                              \
    if (!RemediumLogDropped(::logsite::k##Name.level)) {                                            \
      RemediumLog(::logsite::k##Name.level, ::logsite::k##Name.file, ::logsite::k##Name.line,       \
                  ::logsite::k##Name.function, ::logsite::Name##Format __VA_OPT__(, ) __VA_ARGS__); \
    }                                                                                               \
  } while (false)

// Logs a site chosen at run time whose format takes exactly one string;
// callers static_assert logsite::TakesOneString on every site they pass.
void LogSiteText(const LogSite& site, const char* text);
