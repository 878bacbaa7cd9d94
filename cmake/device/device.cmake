# The hook library as a phone's dynamic linker gets it, from the aarch64
# objects of this build (cross-arm64 preset): linked the way the vendor build
# links it (Android.bp), against stub libraries with the phone's names and
# symbols instead of Debian's, and checked by scripts/check-elf.
#
#   build/cross-arm64/device/com.velora.remedium.hook.camx.so   the library
#   build/cross-arm64/device/stubs/                             the stubs
#
# The qemu build next to it (out/) stays what the tests load; this one is
# never run, only linked and inspected.
#
# Steps:
# 1. stubs/<library>.txt, one name a line, becomes <library> (libc.so,
#    libc++.so, ...): a C file defining each name, compiled with -nostdlib
#    -shared and the library's SONAME, as the NDK makes its link stubs.
# 2. The objects of remedium_client, remedium_core and remedium_hook_objects
#    are combined (ld.lld -r) and the names glibc's headers put in them are
#    renamed to bionic's (glibc-aliases.txt).
# 3. They are linked with crtbegin_so.c and REMEDIUM_DEVICE_LINK_FLAGS against
#    the stubs the vendor build links. -z defs: a call the phone's libraries
#    do not have fails the link.
if(NOT CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64" OR ANDROID OR REMEDIUM_SANITIZE OR REMEDIUM_COVERAGE)
  return()
endif()

if(NOT CMAKE_CXX_FLAGS MATCHES "-mno-outline-atomics")
  # The objects would call the compiler runtime's atomics helpers
  # (cmake/aarch64-linux-gnu.cmake says why they are left out).
  message(FATAL_ERROR "This build's flags predate -mno-outline-atomics in cmake/aarch64-linux-gnu.cmake; "
                      "configure it afresh: cmake --preset cross-arm64 --fresh")
endif()

find_program(REMEDIUM_LD_LLD ld.lld-19 REQUIRED)
find_program(REMEDIUM_LLVM_OBJCOPY llvm-objcopy-19 REQUIRED)

set(device_dir ${CMAKE_BINARY_DIR}/device)
set(device_source_dir ${CMAKE_CURRENT_LIST_DIR})

# What the vendor build's module links: its shared_libs, then stl "libc++",
# then system_shared_libs (Android.bp). libm.so is made too, for a check that
# an extra library is refused.
set(device_linked camera.qcom.so libshadowhook.so libcamera_metadata.so libcutils.so liblog.so libc++.so libdl.so libc.so)
set(device_stub_files)
set(device_stub_targets)
foreach(file IN LISTS device_linked ITEMS libm.so)
  string(MAKE_C_IDENTIFIER "device_stub_${file}" target)
  string(REGEX REPLACE "\\.so$" "" base "${file}")
  set(list ${device_source_dir}/stubs/${file}.txt)
  set(source ${device_dir}/stubs/${file}.c)
  add_custom_command(OUTPUT ${source}
    COMMAND ${CMAKE_COMMAND} -DLIST=${list} -DOUTPUT=${source} -P ${device_source_dir}/stub-source.cmake
    DEPENDS ${list} ${device_source_dir}/stub-source.cmake
    COMMENT "Generating the link stub ${file}"
    VERBATIM)
  add_library(${target} SHARED ${source})
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME "${base}" PREFIX "" SUFFIX ".so"
    LIBRARY_OUTPUT_DIRECTORY ${device_dir}/stubs)
  target_compile_options(${target} PRIVATE -fno-builtin)
  target_link_options(${target} PRIVATE -nostdlib)
  if(NOT file STREQUAL "libm.so")
    list(APPEND device_stub_files $<TARGET_FILE:${target}>)
    list(APPEND device_stub_targets ${target})
  endif()
  set(REMEDIUM_DEVICE_STUB_${base} $<TARGET_FILE:${target}>)
endforeach()

# The start file, compiled like the objects (branch protection included).
add_library(remedium_device_crtbegin OBJECT ${device_source_dir}/crtbegin_so.c)

set(host_object ${device_dir}/hook-host.o)
set(device_object ${device_dir}/hook.o)
set(hook_objects
  $<TARGET_OBJECTS:remedium_client> $<TARGET_OBJECTS:remedium_core> $<TARGET_OBJECTS:remedium_hook_objects>)
add_custom_command(OUTPUT ${device_object}
  COMMAND ${REMEDIUM_LD_LLD} -r -o ${host_object} ${hook_objects}
  COMMAND ${REMEDIUM_LLVM_OBJCOPY} --redefine-syms=${device_source_dir}/glibc-aliases.txt ${host_object} ${device_object}
  DEPENDS ${hook_objects} remedium_client remedium_core remedium_hook_objects ${device_source_dir}/glibc-aliases.txt
  COMMENT "Renaming glibc's names in the hook objects to bionic's"
  COMMAND_EXPAND_LISTS VERBATIM)

# The vendor build's link flags (Android.bp has the same in ldflags):
#   -z now                 every symbol bound at load, so the GOT can be read-only
#   -z relro               GOT and relocated data read-only after relocation
#   -z noexecstack         no executable stack
#   -z max-page-size=16384 loadable on 16 KB-page kernels (Android 15+), and 4 KB
#   --fatal-warnings       as the vendor build's linker runs
# BTI and PAC: lld marks the output when every input is marked, as the objects
# and the start file are (-mbranch-protection=standard); there is no
# -z force-bti, which would mark code that has no landing pads.
set(REMEDIUM_DEVICE_LINK_FLAGS
  -nostdlib
  -Wl,--version-script=${PROJECT_SOURCE_DIR}/hook/exports.map
  -Wl,--no-undefined-version
  -Wl,-z,defs
  -Wl,-z,now
  -Wl,-z,relro
  -Wl,-z,noexecstack
  -Wl,-z,max-page-size=16384
  -Wl,--build-id=sha1
  -Wl,--fatal-warnings)

set(device_library ${device_dir}/com.velora.remedium.hook.camx.so)
# One argument a line: the compiler first, then everything but the output.
# tests/device/gate-variants links its variants from the same file.
set(device_link_args
  ${CMAKE_CXX_COMPILER}
  --target=${CMAKE_CXX_COMPILER_TARGET}
  -fuse-ld=lld
  -shared
  -Wl,-soname,com.velora.remedium.hook.camx.so
  ${REMEDIUM_DEVICE_LINK_FLAGS}
  $<TARGET_OBJECTS:remedium_device_crtbegin>
  ${device_object}
  ${device_stub_files})
string(REPLACE ";" "\n" device_link_lines "${device_link_args}")
file(GENERATE OUTPUT ${device_dir}/link-args.txt CONTENT "${device_link_lines}\n")
add_custom_command(OUTPUT ${device_library}
  COMMAND ${device_link_args} -o ${device_library}
  DEPENDS ${device_object} $<TARGET_OBJECTS:remedium_device_crtbegin> remedium_device_crtbegin
    ${device_stub_files} ${device_stub_targets}
    ${PROJECT_SOURCE_DIR}/hook/exports.map
  COMMENT "Linking the device-shaped com.velora.remedium.hook.camx.so"
  COMMAND_EXPAND_LISTS VERBATIM)
add_custom_target(remedium_hook_camx_device ALL DEPENDS ${device_library})

if(REMEDIUM_BUILD_SIM)
  # The gate on the library, and each of its rules shown to bite.
  add_test(NAME device.check_elf COMMAND ${PROJECT_SOURCE_DIR}/scripts/check-elf ${device_library})
  add_test(NAME device.gate_variants
    COMMAND ${PROJECT_SOURCE_DIR}/tests/device/gate-variants ${device_dir}/link-args.txt ${device_library}
      ${REMEDIUM_DEVICE_STUB_libm} ${CMAKE_SYSROOT}/lib/aarch64-linux-gnu/libc.so.6)
endif()
