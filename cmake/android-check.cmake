# Toolchain for checking the phone build's CMake path where no NDK is
# installed (scripts/check-android-cmake): the aarch64 cross toolchain with
# ANDROID set, so that the project takes its Android branch, and the platform
# libraries taken from REMEDIUM_DEVICE_LIBS (there: the cross build's
# simulated platform, which has the device libraries' names and symbols).
include(${CMAKE_CURRENT_LIST_DIR}/aarch64-linux-gnu.cmake)
set(ANDROID ON)
set(ANDROID_ABI arm64-v8a)
set(ANDROID_STL none)  # the platform's libc++ (std::__1), as in a vendor tree
# liblog is looked up as the NDK's would be.
if(REMEDIUM_DEVICE_LIBS)
  list(APPEND CMAKE_LIBRARY_PATH "${REMEDIUM_DEVICE_LIBS}")
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
