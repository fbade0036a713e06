# plc_embed_file(TARGET HEADER NAMESPACE CONSTANT FILE): the bytes of a file in the target's program, as the
# std::string_view that HEADER declares in NAMESPACE. Run as a script, this file writes the source that defines it.
set(PLC_EMBED_SCRIPT ${CMAKE_CURRENT_LIST_FILE})
function(plc_embed_file target header namespace constant file)
  get_filename_component(path ${file} ABSOLUTE)
  get_filename_component(name ${file} NAME)
  set(output ${CMAKE_CURRENT_BINARY_DIR}/embedded/${name}.cpp)
  add_custom_command(OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -DFILE=${path} -DNAME=${name} -DOUTPUT=${output} -DHEADER=${header}
            -DNAMESPACE=${namespace} -DCONSTANT=${constant} -P ${PLC_EMBED_SCRIPT}
    DEPENDS ${path} ${PLC_EMBED_SCRIPT}
    VERBATIM)
  target_sources(${target} PRIVATE ${output})
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  file(READ ${FILE} bytes HEX)
  string(LENGTH "${bytes}" digits)
  math(EXPR size "${digits} / 2")
  set(half_line "................")
  string(REGEX REPLACE "(${half_line}${half_line})" "\\1\n" lines "${bytes}")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "\\\\x\\1" lines "${lines}")
  string(REPLACE "\n" "\"\n    \"" lines "${lines}")
  file(WRITE ${OUTPUT} "// The bytes of ${NAME}, written by the build.
#include \"${HEADER}\"

namespace ${NAMESPACE} {

const std::string_view ${CONSTANT}(
    \"${lines}\",
    ${size});

}  // namespace ${NAMESPACE}
")
endif()
