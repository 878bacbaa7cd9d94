# Cross toolchain for 64-bit Arm Linux: clang-19 with libc++ and lld against
# the Debian arm64 sysroot that scripts/arm64-sysroot prepares, with branch
# protection (pointer authentication of return addresses and BTI) as on an
# Android arm64 build. Programs run under qemu-aarch64-static with a CPU that
# has pointer authentication; CMake and ctest start them through it
# (CMAKE_CROSSCOMPILING_EMULATOR), since the machine has no binfmt handler.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

if(NOT REMEDIUM_ARM64_SYSROOT)
  set(REMEDIUM_ARM64_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-arm64")
endif()
get_filename_component(REMEDIUM_ARM64_SYSROOT "${REMEDIUM_ARM64_SYSROOT}" ABSOLUTE)
set(REMEDIUM_ARM64_SYSROOT "${REMEDIUM_ARM64_SYSROOT}" CACHE PATH "Debian arm64 sysroot (scripts/arm64-sysroot)")
# try_compile projects re-read this file; hand them the same sysroot.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES REMEDIUM_ARM64_SYSROOT)
if(NOT EXISTS "${REMEDIUM_ARM64_SYSROOT}/usr/lib/aarch64-linux-gnu/libc++.so")
  message(FATAL_ERROR "No arm64 sysroot at ${REMEDIUM_ARM64_SYSROOT}; run scripts/arm64-sysroot")
endif()

set(CMAKE_SYSROOT "${REMEDIUM_ARM64_SYSROOT}")
set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_C_COMPILER_TARGET aarch64-linux-gnu)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-gnu)
# No outline atomics: their helpers (__aarch64_ldadd8_acq_rel, ...) and the
# constructor that picks LSE or LL/SC live in the compiler's runtime archive,
# and Debian's arm64 build of it carries no BTI marking (the constructor, called
# indirectly from .init_array, has no landing pad). Linking it would leave the
# device-shaped library (cmake/device) either unmarked or marked but faulting
# on a phone that enforces BTI; inline atomics keep all the code ours.
set(CMAKE_C_FLAGS_INIT "-mbranch-protection=standard -mno-outline-atomics")
set(CMAKE_CXX_FLAGS_INIT "-stdlib=libc++ -mbranch-protection=standard -mno-outline-atomics")
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-stdlib=libc++ -fuse-ld=lld")
endforeach()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(REMEDIUM_QEMU_AARCH64 qemu-aarch64-static REQUIRED)
# -cpu max: Armv8.3+ with pointer authentication (and BTI) enabled.
set(CMAKE_CROSSCOMPILING_EMULATOR "${REMEDIUM_QEMU_AARCH64};-L;${REMEDIUM_ARM64_SYSROOT};-cpu;max")
