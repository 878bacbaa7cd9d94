# A bad input: the command exits 2 (fix your input) with one line on stderr
# that names the file, and prints nothing else there.
#   cmake [-DEMULATOR=...] -DPROGRAM=... [-DSUBCOMMAND=explain] -DFILE=... -P bad_input.cmake
# EMULATOR: the cross build's emulator command, "|"-separated, or empty.
string(REPLACE "|" ";" emulator "${EMULATOR}")
execute_process(COMMAND ${emulator} ${PROGRAM} ${SUBCOMMAND} ${FILE} RESULT_VARIABLE status OUTPUT_VARIABLE out
  ERROR_VARIABLE err)
string(STRIP "${err}" err)
if(NOT status EQUAL 2)
  message(FATAL_ERROR "exit status ${status}, not 2, for ${FILE}; stderr: ${err}")
endif()
string(FIND "${err}" "${FILE}" named)
string(FIND "${err}" "\n" lines)
if(named EQUAL -1 OR NOT lines EQUAL -1)
  message(FATAL_ERROR "not one line naming ${FILE}: ${err}")
endif()
message(STATUS "${err}")
