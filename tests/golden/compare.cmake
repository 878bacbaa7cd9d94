# Plays one bundled scenario, turns its --json report into a transcript and
# compares it with the committed golden file. With UPDATE=1 the golden file
# is rewritten instead (commit it only with a reason that is not the
# library's behaviour).
#   cmake -DEMULATOR=... -DSIM=... -DTRANSCRIPT=... -DSCENARIO=... -DGOLDEN=... -DWORK=... -P compare.cmake
# EMULATOR: the cross build's emulator command, "|"-separated, or empty.
get_filename_component(name ${SCENARIO} NAME_WE)
string(REPLACE "|" ";" emulator "${EMULATOR}")
set(report ${WORK}/${name}.json)
set(actual ${WORK}/${name}.txt)
file(MAKE_DIRECTORY ${WORK})
execute_process(COMMAND ${emulator} ${SIM} run --quiet --progress off --json ${report} ${SCENARIO}
  RESULT_VARIABLE rc ERROR_VARIABLE err)
if(NOT rc EQUAL 0 AND NOT rc EQUAL 1)
  message(FATAL_ERROR "remedium-sim failed (${rc}) on ${SCENARIO}: ${err}")
endif()
execute_process(COMMAND ${emulator} ${TRANSCRIPT} ${report} ${actual} RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "golden-transcript failed on ${report}")
endif()
if(UPDATE)
  configure_file(${actual} ${GOLDEN} COPYONLY)
  return()
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${actual} ${GOLDEN} RESULT_VARIABLE differ)
if(differ)
  execute_process(COMMAND diff -u ${GOLDEN} ${actual} OUTPUT_VARIABLE delta)
  string(SUBSTRING "${delta}" 0 6000 delta)
  message(FATAL_ERROR "${name}: the transcript differs from ${GOLDEN}:\n${delta}")
endif()
