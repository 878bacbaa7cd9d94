// Declarations of the Qualcomm CamX HAL (camera.qcom.so) that the proxies use:
// the types in the hooked functions' parameter lists (their names are part of
// the proxies' exported C++ names) and the HAL functions the proxies call.
// Object contents are reached only through camxlayout.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

using CamxResult = int32_t;
inline constexpr CamxResult CamxResultSuccess = 0;
inline constexpr CamxResult CamxResultEFailed = 1;

struct CSLSensorCapability;
struct CSLSensorI2CInfo;
struct CSLOISI2CInfo;
struct CSLMessage;
struct sensors_event_t;

enum CSLPacketOpcodesSensor : uint32_t {};

namespace CamX {

struct SensorModuleStaticCaps;
struct TuningDataManager;
struct HwSensorInfo;
struct HwDeviceTypeInfo;
struct ActuatorDriverData;
struct NCSProviderCap;
struct OISLensPositionData;
struct Camera3CaptureRequest;

enum I2CRegSettingType : uint32_t {};
enum NCSSensorType : int32_t {};

// The pipeline a node belongs to; its first virtual operation returns the
// camera id.
class Pipeline {
 public:
  virtual uint32_t GetCameraId() = 0;

 protected:
  ~Pipeline() = default;
};

class Node {
 public:
  Pipeline* GetPipeline() const;
};

class OsUtils {
 public:
  // Formats the text of `errorNum` into `pErrorMsg` of `errorMsgSize` bytes.
  static void StrError(char* pErrorMsg, size_t errorMsgSize, int errorNum);
};

class VendorTagManager {
 public:
  static CamxResult QueryVendorTagLocation(const char* pSectionName, const char* pTagName, uint32_t* pTagLocation);
};

}  // namespace CamX
