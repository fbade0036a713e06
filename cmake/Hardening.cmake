# plc_harden(target...): programs, and the libraries that they are made of, read what strangers wrote: captures, tag files,
# requests. A write past the end of an array ends them, and nothing of them lies where a stranger can know it.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

# Calls that name the size of an array are checked, where the compiler optimises and no sanitizer does it better; in the
# newest way that the compiler knows. 1 or 0, or an expression of that value.
get_property(plc_many_types GLOBAL PROPERTY GENERATOR_IS_MULTI_CONFIG)
string(TOUPPER "CMAKE_CXX_FLAGS_${CMAKE_BUILD_TYPE}" plc_type_flags)
if(PLC_SANITIZE OR PLC_BUILD_FUZZ OR PLC_UNOPTIMIZED_TOOLS)
  set(plc_fortified 0)
elseif(plc_many_types)
  set(plc_fortified $<NOT:$<CONFIG:Debug>>)
elseif("${CMAKE_CXX_FLAGS} ${${plc_type_flags}}" MATCHES "(^| )-O([123sz]|fast)")
  set(plc_fortified 1)
else()
  set(plc_fortified 0)
endif()
set(plc_fortify_level 2)
if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang" AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 12)
  set(plc_fortify_level 3)
endif()

function(plc_harden)
  foreach(target ${ARGN})
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_compile_options(${target} PRIVATE -fstack-protector-strong
      $<${plc_fortified}:-U_FORTIFY_SOURCE> $<${plc_fortified}:-D_FORTIFY_SOURCE=${plc_fortify_level}>)
    get_target_property(type ${target} TYPE)
    if(type MATCHES "^(EXECUTABLE|SHARED_LIBRARY)$")
      target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
      set_property(GLOBAL APPEND PROPERTY plc_hardened_programs ${target})
    endif()
  endforeach()
endfunction()
