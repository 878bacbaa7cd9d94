# Writes the C source of a link stub: one empty definition per name of a
# symbol list (stubs/*.txt: one name a line, '#' starts a comment), under the
# name itself through an asm label, so C++ names need no C spelling. Type
# information, virtual tables and VTTs (_ZT...) become data, the rest
# functions; the stub is only linked against, never loaded.
#   cmake -DLIST=stubs/libc.so.txt -DOUTPUT=libc.so.c -P stub-source.cmake
file(STRINGS "${LIST}" lines)
set(source "/* Generated from ${LIST}. */\n")
set(count 0)
foreach(line IN LISTS lines)
  string(REGEX REPLACE "#.*" "" name "${line}")
  string(STRIP "${name}" name)
  if(name STREQUAL "")
    continue()
  endif()
  if(NOT name MATCHES "^[A-Za-z_][A-Za-z0-9_.$]*$")
    message(FATAL_ERROR "${LIST}: '${name}' is not a symbol name")
  endif()
  if(name MATCHES "^_ZT")
    string(APPEND source "char stub_${count}[16] __asm__(\"${name}\");\nchar stub_${count}[16];\n")
  else()
    string(APPEND source "void stub_${count}(void) __asm__(\"${name}\");\nvoid stub_${count}(void) {}\n")
  endif()
  math(EXPR count "${count} + 1")
endforeach()
if(count EQUAL 0)
  message(FATAL_ERROR "${LIST}: no symbol names")
endif()
file(WRITE "${OUTPUT}" "${source}")
