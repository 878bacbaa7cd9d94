# Source-based coverage (clang's -fprofile-instr-generate -fcoverage-mapping)
# for the `coverage` preset. Everything is instrumented: the hook library
# (each copy of its objects, in the .so and in the unit-test programs), the
# simulated platform and the tests. Each instrumented binary, the .so
# included, carries its own profile runtime and writes its counters when it
# exits or, for the .so, when it is unloaded (dlclose runs the writer the
# library registered). The test preset points LLVM_PROFILE_FILE at
# build/coverage/profiles/ with %p (one file per process) and %m (one per
# binary, merged in place when the .so is loaded and unloaded again in the
# same process); scripts/coverage merges and reports them.
#
# The fuzz targets become plain programs here: instead of libFuzzer, a small
# driver (fuzz/replay_main.cpp) hands each file named on its command line,
# or each file in a folder named there, to LLVMFuzzerTestOneInput once. Each
# target that has a corpus is a ctest test replaying its corpus and its kept
# regression inputs, so their coverage adds to the suite's.
add_compile_options(-fprofile-instr-generate -fcoverage-mapping)
add_link_options(-fprofile-instr-generate)

# Turns every fuzz_* program into a replaying one: libFuzzer's and the
# sanitizers' flags come off every target (the library layers got
# -fsanitize=fuzzer-no-link for coverage feedback), the replay driver goes in.
function(remedium_coverage_strip_fuzzer_flags target)
  foreach(property COMPILE_OPTIONS LINK_OPTIONS)
    get_target_property(options ${target} ${property})
    if(options)
      list(FILTER options EXCLUDE REGEX "^-fsanitize=|^-Wl,-lstdc\\+\\+$")
      set_property(TARGET ${target} PROPERTY ${property} ${options})
    endif()
  endforeach()
endfunction()

function(remedium_coverage_collect_targets directory out)
  get_property(targets DIRECTORY ${directory} PROPERTY BUILDSYSTEM_TARGETS)
  get_property(subdirectories DIRECTORY ${directory} PROPERTY SUBDIRECTORIES)
  foreach(subdirectory IN LISTS subdirectories)
    remedium_coverage_collect_targets(${subdirectory} more)
    list(APPEND targets ${more})
  endforeach()
  set(${out} ${targets} PARENT_SCOPE)
endfunction()

function(remedium_coverage_replay_fuzzers)
  remedium_coverage_collect_targets(${PROJECT_SOURCE_DIR} targets)
  foreach(target IN LISTS targets)
    get_target_property(imported ${target} IMPORTED)
    get_target_property(type ${target} TYPE)
    if(imported OR type STREQUAL "INTERFACE_LIBRARY")
      continue()
    endif()
    remedium_coverage_strip_fuzzer_flags(${target})
    if(type STREQUAL "EXECUTABLE" AND target MATCHES "^fuzz_")
      target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/fuzz/replay_main.cpp)
      set(inputs)
      foreach(folder corpus regressions)
        if(IS_DIRECTORY ${PROJECT_SOURCE_DIR}/fuzz/${folder}/${target})
          list(APPEND inputs ${PROJECT_SOURCE_DIR}/fuzz/${folder}/${target})
        endif()
      endforeach()
      if(inputs)
        add_test(NAME replay.${target} COMMAND ${target} ${inputs}
          WORKING_DIRECTORY ${CMAKE_BINARY_DIR})
      endif()
    endif()
  endforeach()
endfunction()
cmake_language(DEFER DIRECTORY ${PROJECT_SOURCE_DIR} CALL remedium_coverage_replay_fuzzers)
