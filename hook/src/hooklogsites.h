// The hooks' log sites (see client/interface/logsites.h).
#pragma once

#include "client/interface/logsites.h"

// The path the hooks' lines report: "hook.cpp", whichever file the code sits in.
inline constexpr char kHookReportedFile[] = "hook/src/hook.cpp";

// clang-format off
#define REMEDIUM_HOOK_LOG_SITES(SITE) \
  /* Override-settings reader. */ \
  SITE(SettingsOpenFailure, kLogVerbose, kHookReportedFile, 20, "ParseConfigFile", "Failed to open file: %s") \
  /* Static caps. */ \
  SITE(StaticCapsSlot, kLogInfo, kHookReportedFile, 17, "GetStaticCapsHook", "camera id: %d, slot id: %d") \
  /* Probe bookkeeping and EEPROM retry decisions. */ \
  SITE(LastRetryVerdict, kLogInfo, kHookReportedFile, 44, "IsLastRetryTimes", "Camera name: %s, rerty times: %d, probeFailCount: %d, last retry times: %d") \
  SITE(EepromLastRetryVerdict, kLogInfo, kHookReportedFile, 51, "IsLastEEPROMProbeRetryTimes", "Camera name: %s, rerty times: %d, probeFailCount: %d, last retry times: %d") \
  SITE(EepromBypassProbeCount, kLogInfo, kHookReportedFile, 62, "IsLastEEPROMProbeRetryBypassSensor", "probeCount: %d") \
  SITE(EepromBypassVerdict, kLogInfo, kHookReportedFile, 74, "IsLastEEPROMProbeRetryBypassSensor", "Camera name: %s, rerty times: %d, probeFailCount: %d, probeSuccessCount: %d, last retry times: %d") \
  /* Kernel probe-result channel, per operation. */ \
  SITE(SetProbeResultOpenFailure, kLogInfo, kHookReportedFile, 55, "SetSensorProbeResult", "Failed to open /sys/module/camera/parameters/sensor_apply_settings_control: errnoStr: %s") \
  SITE(SetProbeResultReadText, kLogInfo, kHookReportedFile, 64, "SetSensorProbeResult", "read sensor_apply_settings_control: %s") \
  SITE(SetProbeResultWrite, kLogInfo, kHookReportedFile, 88, "SetSensorProbeResult", "set sensor_apply_settings_control: %s, size: %d") \
  SITE(ReadProbeResultOpenFailure, kLogInfo, kHookReportedFile, 55, "ReadSensorProbeResult", "Failed to open /sys/module/camera/parameters/sensor_apply_settings_control: errnoStr: %s") \
  SITE(ReadProbeResultReadText, kLogInfo, kHookReportedFile, 64, "ReadSensorProbeResult", "read sensor_apply_settings_control: %s") \
  SITE(ResetProbeResultOpenFailure, kLogInfo, kHookReportedFile, 109, "ResetSensorProbeResult", "Failed to open /sys/module/camera/parameters/sensor_apply_settings_control: errnoStr: %s") \
  SITE(ResetProbeResultReadText, kLogInfo, kHookReportedFile, 120, "ResetSensorProbeResult", "read sensor_apply_settings_control: %s") \
  SITE(ResetProbeResultWrite, kLogInfo, kHookReportedFile, 127, "ResetSensorProbeResult", "set sensor_apply_settings_control: %s") \
  SITE(InitResultOpenFailure, kLogInfo, kHookReportedFile, 734, "ReadSensorInitResult", "Failed to open /sys/module/camera/parameters/sensor_apply_settings_control: errnoStr: %s") \
  SITE(InitResultReadText, kLogInfo, kHookReportedFile, 724, "ReadSensorInitResult", "read sensor_apply_settings_control: %s") \
  /* Sensor probe. */ \
  SITE(ProbeLastResult, kLogInfo, kHookReportedFile, 37, "ProbeCameraNumber", "Probe result: %s, %d") \
  SITE(ProbeProtectionArgument, kLogInfo, kHookReportedFile, 79, "SensorProbeHook", "arg: %s") \
  SITE(ProbeProtectionSensorName, kLogInfo, kHookReportedFile, 80, "SensorProbeHook", "sensor name: %s") \
  SITE(ProbeSettings, kLogInfo, kHookReportedFile, 93, "SensorProbeHook", "sensorModuleRetryTimes: %d, sensorModuleNumber: %d") \
  SITE(ProbeSettingsMissing, kLogError, kHookReportedFile, 98, "SensorProbeHook", "Failed to get cameraid or error retry times: sensorModuleRetryTimes: %d, sensorModuleNumber: %d") \
  SITE(ProbeSensorUsage, kLogInfo, kHookReportedFile, 105, "SensorProbeHook", "sensor name: %s,  sensor type: %s, frequentlyUsedSensor: %d, neverBeenSuccessfullyProbed: %d") \
  SITE(ProbeMostProbed, kLogInfo, kHookReportedFile, 107, "SensorProbeHook", "output sensor name: %s, record count: %d") \
  SITE(ProbeCount, kLogInfo, kHookReportedFile, 112, "SensorProbeHook", "Get camera name:%s, probeCount: %d") \
  SITE(ProbeOutcome, kLogInfo, kHookReportedFile, 152, "SensorProbeHook", "probe sensor: %s, slot id: %d kmd result: %d, umd result: %d") \
  /* Bring-up. */ \
  SITE(InitDeviceChanged, kLogInfo, kHookReportedFile, 1599, "InitializeSensorDeviceHook", "hook InitializeSensorDeviceHook, camera id: %d, change result:%d to: %d, set init state: %d") \
  SITE(InitDeviceSkip, kLogInfo, kHookReportedFile, 1576, "InitializeSensorDeviceHook", "Skip InitializeSensorDeviceHook, camera id: %d") \
  SITE(InitConfigChanged, kLogInfo, kHookReportedFile, 778, "LoadSensorInitConfigCmdHook", "hook LoadSensorInitConfigCmd, camera id: %d, change result:%d, kernelInitResult: %d to: %d") \
  SITE(ConfigCmdsSkip, kLogInfo, kHookReportedFile, 1507, "LoadSensorConfigCmdsHook", "Skip LoadSensorConfigCmdsHook, camera id: %d") \
  /* The text names the init-settings hook; the log tools match it so. */ \
  SITE(ConfigCmdsChanged, kLogInfo, kHookReportedFile, 1528, "LoadSensorConfigCmdsHook", "hook LoadSensorInitConfigCmd, camera id: %d, change result:%d to: %d") \
  SITE(SubmitInitialConfigCode, kLogInfo, kHookReportedFile, 674, "SensorCreateAndSubmitCommandHook", "In code %d") \
  SITE(SubmitInitialConfigChanged, kLogInfo, kHookReportedFile, 676, "SensorCreateAndSubmitCommandHook", "hook CreateAndSubmitCommand, change result: %d to: %d, pThis: %p") \
  SITE(SubmitConfigCode, kLogInfo, kHookReportedFile, 684, "SensorCreateAndSubmitCommandHook", "In code %d") \
  SITE(SubmitConfigChanged, kLogInfo, kHookReportedFile, 686, "SensorCreateAndSubmitCommandHook", "hook CreateAndSubmitCommand, change result: %d to: %d, pThis: %p") \
  SITE(SensorI2CSlaveAddress, kLogInfo, kHookReportedFile, 530, "CreateI2CInfoCmdHook", "slaveAddr:0x%x") \
  /* EEPROM. */ \
  SITE(EepromProbeRecorded, kLogInfo, kHookReportedFile, 41, "SetProbeEEPROMInfoMap", "Camera name: %s, probeCount: %d") \
  SITE(EepromDataSettings, kLogInfo, kHookReportedFile, 72, "EEPROMDataProbeHook", "sensorModuleRetryTimes: %d, sensorModuleNumber: %d, cameraId: %d") \
  SITE(EepromDataSensorUsage, kLogInfo, kHookReportedFile, 84, "EEPROMDataProbeHook", "camera id: %d, probe time: %d, sensor name: %s,  sensor type: %s, frequentlyUsedSensor: %d, neverBeenSuccessfullyProbed: %d output sensor name: %s, record count: %d") \
  SITE(EepromDataOutcome, kLogInfo, kHookReportedFile, 94, "EEPROMDataProbeHook", "camera id: %d, sensor name: %s, result: %d") \
  SITE(ProbeEepromArgument, kLogInfo, kHookReportedFile, 105, "ProbeEEPROMHook", "arg: %s") \
  SITE(ProbeEepromOutcome, kLogInfo, kHookReportedFile, 110, "ProbeEEPROMHook", "Probe EEPROM name: %s, result: %d") \
  SITE(ReadEepromArgument, kLogInfo, kHookReportedFile, 122, "ReadEEPROMDeviceHook", "arg: %s") \
  SITE(ReadEepromSensorName, kLogInfo, kHookReportedFile, 123, "ReadEEPROMDeviceHook", "sensor name: %s") \
  /* Lens and OIS. */ \
  SITE(ActuatorNames, kLogInfo, kHookReportedFile, 45, "ActuatorDataHook", "camera name: %s, actuator name: %s") \
  SITE(ActuatorAddressChanged, kLogInfo, kHookReportedFile, 52, "ActuatorDataHook", "change slave address: 0x%x") \
  SITE(ActuatorAddress, kLogInfo, kHookReportedFile, 58, "ActuatorDataHook", "slave address: 0x%x") \
  SITE(OisProviderResult, kLogInfo, kHookReportedFile, 67, "OISRegisterProviderHook", "change result to: %d") \
  SITE(OisI2CSlaveAddress, kLogInfo, kHookReportedFile, 78, "OISCreateI2CInfoCmdHook", "slaveAddr:0x%x") \
  /* Gyro. */ \
  SITE(GyroTimestampModified, kLogInfo, kHookReportedFile, 42, "PostGyroDataHook", "modify timestamp to: %lld") \
  SITE(GyroSampleTimestamp, kLogInfo, kHookReportedFile, 45, "PostGyroDataHook", "rSensorDataList[%d] timestamp: %lld")
// clang-format on

REMEDIUM_DEFINE_LOG_SITES(REMEDIUM_HOOK_LOG_SITES)
