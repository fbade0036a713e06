# PLC_SANITIZE: a list of sanitizers for every target of the build, for example "address,undefined".
set(PLC_SANITIZE "" CACHE STRING "Sanitizers for every target, comma separated; empty for none")
if(PLC_SANITIZE)
  # Reports name functions and lines; variables would make the programs half as large again.
  add_compile_options(-fsanitize=${PLC_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1)
  if(CMAKE_CXX_COMPILER_ID MATCHES Clang AND PLC_SANITIZE MATCHES undefined)
    # It looks for the types of functions, which a library without type information does not have.
    add_compile_options(-fno-sanitize=function)
  endif()
  add_link_options(-fsanitize=${PLC_SANITIZE})
endif()
