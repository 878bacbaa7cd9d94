// The list of cameras in error as the framework reads it: the property that
// holds it and the framework identifier of each camera (the contract with the
// framework; every reader and writer of the list takes them from here).
#pragma once

#include <cstdint>

namespace CamX {

inline constexpr char kErrorFrameworkIdProperty[] = "persist.vendor.camera.errorFrameworkId";

// Camera identifier -> framework identifier; a camera past the table maps to 0.
// Camera 5 maps to 9 on purpose.
inline constexpr uint32_t kFrameworkIdOfCamera[] = {2, 1, 3, 4, 5, 9};

}  // namespace CamX
