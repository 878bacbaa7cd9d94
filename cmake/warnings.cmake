# Project code builds warning-free under the strict set; third-party code
# (GoogleTest) does not get these flags.
add_library(remedium_warnings INTERFACE)
target_compile_options(remedium_warnings INTERFACE -Wall -Wextra -Werror -Wshadow
  -Wnon-virtual-dtor -Wformat=2 -Wimplicit-fallthrough)
