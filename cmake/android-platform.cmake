# The platform underneath the hook library on a phone, for a build with the
# NDK's toolchain (-DCMAKE_TOOLCHAIN_FILE=<ndk>/build/cmake/android.toolchain.cmake
# -DANDROID_ABI=arm64-v8a). Defines `remedium_platform`, the interface target
# that the simulated platform defines on the host, from the device's own
# libraries, linked by name:
#
#   liblog.so              the NDK's
#   libcutils.so           property_get, property_get_int32, property_set
#   libcamera_metadata.so  find_camera_metadata_entry
#   libshadowhook.so       shadowhook_get_prev_func, shadowhook_get_mode, shadowhook_pop_stack
#   camera.qcom.so         the CamX HAL the proxies are installed over
#
# All but liblog come from the device (copied from its /system/lib64 and
# /vendor/lib64) into REMEDIUM_DEVICE_LIBS. Their headers, which the NDK does
# not have, come from REMEDIUM_DEVICE_INCLUDES: cutils/properties.h,
# system/camera_metadata.h, hardware/sensors.h (AOSP's system/core/libcutils,
# system/media/camera and hardware/libhardware include folders) and
# ShadowHook's public shadowhook.h.
set(REMEDIUM_DEVICE_LIBS "" CACHE PATH
  "Folder holding the device's libcutils.so, libcamera_metadata.so, libshadowhook.so and camera.qcom.so")
set(REMEDIUM_DEVICE_INCLUDES "" CACHE STRING
  "Folders (a ;-list) with cutils/, system/, hardware/ headers and shadowhook.h")
if(NOT REMEDIUM_DEVICE_LIBS OR NOT IS_DIRECTORY "${REMEDIUM_DEVICE_LIBS}")
  message(FATAL_ERROR "Set REMEDIUM_DEVICE_LIBS to a folder with the device's libraries (README.md, "
                      "\"Building for a phone\")")
endif()
if(NOT ANDROID_ABI STREQUAL "arm64-v8a")
  message(FATAL_ERROR "The library is built for arm64-v8a only (ANDROID_ABI is '${ANDROID_ABI}')")
endif()

add_library(remedium_platform INTERFACE)
target_include_directories(remedium_platform SYSTEM INTERFACE ${REMEDIUM_DEVICE_INCLUDES})

find_library(REMEDIUM_LIBLOG log REQUIRED)
target_link_libraries(remedium_platform INTERFACE ${REMEDIUM_LIBLOG} ${CMAKE_DL_LIBS})

# Built and linked as the vendor tree builds the library (Android.bp, and the
# cross-arm64 build's device-shaped link, cmake/device): BTI landing pads and
# return-address signing in every object, so the library is marked for both;
# every symbol bound at load and the GOT read-only after relocation; no
# executable stack; segments aligned for 16 KB-page kernels (Android 15+),
# which load on 4 KB-page kernels too. --as-needed: the toolchain adds libm,
# which the library does not call (README.md's table of needed libraries).
target_compile_options(remedium_platform INTERFACE -mbranch-protection=standard)
target_link_options(remedium_platform INTERFACE
  -Wl,-z,now -Wl,-z,relro -Wl,-z,noexecstack -Wl,-z,max-page-size=16384 -Wl,--as-needed)

# The device's libraries by their names, as the dynamic linker will find
# them on the phone (no path is recorded, no build-tree run path either).
set(CMAKE_SKIP_BUILD_RPATH ON)
foreach(name cutils camera_metadata shadowhook camera.qcom)
  if(name STREQUAL "camera.qcom")
    set(file "camera.qcom.so")
  else()
    set(file "lib${name}.so")
  endif()
  if(NOT EXISTS "${REMEDIUM_DEVICE_LIBS}/${file}")
    message(FATAL_ERROR "${file} is missing from REMEDIUM_DEVICE_LIBS (${REMEDIUM_DEVICE_LIBS})")
  endif()
  string(MAKE_C_IDENTIFIER "device_${name}" target)
  add_library(${target} SHARED IMPORTED)
  set_target_properties(${target} PROPERTIES IMPORTED_LOCATION "${REMEDIUM_DEVICE_LIBS}/${file}")
  target_link_libraries(remedium_platform INTERFACE ${target})
endforeach()

# Vendor code on a phone uses the platform's libc++, whose namespace is
# std::__1; the NDK's lives in std::__ndk1. PostGyroDataHook takes a
# std::vector, so its exported name follows the namespace: with the NDK's
# libc++ the export list is rewritten to match, and the framework core, which
# looks the proxy up under the platform's name, will not find that one proxy.
# The build to ship is the vendor tree's (Android.bp, stl: "libc++").
set(REMEDIUM_EXPORTS_MAP "${CMAKE_BINARY_DIR}/exports.map")
file(READ "${PROJECT_SOURCE_DIR}/hook/exports.map" exports)
if(ANDROID_STL MATCHES "^c\\+\\+_")
  string(REPLACE "std::__1::" "std::__ndk1::" exports "${exports}")
  message(WARNING "ANDROID_STL=${ANDROID_STL}: PostGyroDataHook is exported under std::__ndk1, "
                  "not under the platform libc++ name the framework core looks up")
endif()
file(CONFIGURE OUTPUT "${REMEDIUM_EXPORTS_MAP}" CONTENT "${exports}" @ONLY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/hook/exports.map")
