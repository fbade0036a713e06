# PLC_SANITIZE: a list of sanitizers for every target of the build, for example "address,undefined".
set(PLC_SANITIZE "" CACHE STRING "Sanitizers for every target, comma separated; empty for none")
if(PLC_SANITIZE)
  add_compile_options(-fsanitize=${PLC_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${PLC_SANITIZE})
endif()
