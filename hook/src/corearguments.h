// The names the proxies ask the framework core's GetHookArguments for, each
// with the proxy that asks and what the answer means to it. The proxies and
// every tool that scripts or reads the core's arguments take them from here.
#pragma once

namespace CamX::coreargument {

// SensorProbeHook: sensor names (or name fragments) whose failed probe is
// reported as a protection fault; "" matches every name.
inline constexpr char kSensorProbeProtection[] = "SensorProbeProtection";
// SensorProbeHook: fetched and released, its answer unused.
inline constexpr char kSensorProbeI2CError[] = "SensorProbeI2CError";
// EEPROMDataProbeHook: fetched and released, its answer unused.
inline constexpr char kProbeEEPROMProtection[] = "ProbeEEPROMProtection";
// ProbeEEPROMHook: EEPROM names (or fragments) whose probe is made to fail.
inline constexpr char kProbeEEPROM[] = "ProbeEEPROM";
// ReadEEPROMDeviceHook: sensor names (or fragments) whose EEPROM read is made to fail.
inline constexpr char kReadEEPROMDeviceFail[] = "ReadEEPROMDeviceFail";
// CreateI2CInfoCmdHook: the slave address the EEPROM's I2C info is switched to.
inline constexpr char kEEPROMI2C[] = "EEPROMI2C";
// ActuatorDataHook: actuator names (or fragments) whose slave address is broken.
inline constexpr char kActuatorI2CError[] = "ActuatorI2CError";
// ReadLensPositionDataHook: a delay in microseconds, then a result to return instead.
inline constexpr char kReadLensPositionData[] = "ReadLensPositionData";
// CSLMessageHandlerHook: the frame value whose message becomes an error.
inline constexpr char kCSLMessageHandler[] = "CSLMessageHandler";

inline constexpr const char* kAll[] = {kSensorProbeProtection, kSensorProbeI2CError,  kProbeEEPROMProtection,
                                       kProbeEEPROM,           kReadEEPROMDeviceFail, kEEPROMI2C,
                                       kActuatorI2CError,      kReadLensPositionData, kCSLMessageHandler};

}  // namespace CamX::coreargument
