# GoogleTest and GoogleMock from Debian's sources, built with this toolchain
# (libc++), since Debian's prebuilt archives are built against libstdc++.
set(REMEDIUM_GTEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest source tree")
if(NOT EXISTS ${REMEDIUM_GTEST_SOURCE}/CMakeLists.txt)
  message(FATAL_ERROR "GoogleTest sources not found at ${REMEDIUM_GTEST_SOURCE}; "
                      "install Debian's 'googletest' package (scripts/test does)")
endif()
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
add_subdirectory(${REMEDIUM_GTEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
include(GoogleTest)
