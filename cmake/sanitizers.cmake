# Sanitizers apply to everything built here, the library and the simulated
# platform alike, so that a report points at the code that did it.
if(REMEDIUM_SANITIZE)
  add_compile_options(-fsanitize=${REMEDIUM_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${REMEDIUM_SANITIZE})
endif()
