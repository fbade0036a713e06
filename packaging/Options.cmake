# Options of builds that are packaged; included before the targets are declared.
set(PLC_DEBIAN_ARCHITECTURE "" CACHE STRING "Architecture of the Debian packages")
set(PLC_PACKAGE_CONTACT "the plc_driver authors <plc-driver@localhost>" CACHE STRING
    "Maintainer of the Debian packages: whom their users write to")
option(PLC_PORTABLE_TOOLS "Packaged tools: at run time only the C library, libpcap and libmicrohttpd" OFF)
if(PLC_PORTABLE_TOOLS)
  set(PLC_LIBUV_MODULE libuv-static CACHE STRING "pkg-config module of libuv")
  # The gateway's libraries are of C++ too, and need the same one as the program.
  set(plc_own_cxx $<NOT:$<STREQUAL:$<TARGET_PROPERTY:NAME>,plc-gateway>>)
  add_link_options($<$<AND:$<LINK_LANGUAGE:CXX>,$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>,${plc_own_cxx}>:-static-libstdc++>
                   $<$<AND:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>,${plc_own_cxx}>:-static-libgcc>)
  # Libraries of libraries, which the linker would otherwise find by a run path of this machine's folders.
  if(plc_sysroot)
    set(plc_link_folder ${plc_sysroot}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE})
    add_link_options($<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-Wl,-rpath-link,${plc_link_folder}>)
  endif()
  # The same bytes wherever the sources lie.
  add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
endif()
# Where files for CMake and pkg-config go, and how the latter find the prefix from there, wherever the tree is unpacked.
if(DEFINED CMAKE_INSTALL_LIBDIR)
  set(plc_config_folder ${CMAKE_INSTALL_LIBDIR}/cmake/plc_driver)
  file(RELATIVE_PATH pc_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  string(REGEX REPLACE "/$" "" pc_prefix "${pc_prefix}")
endif()
# What a folder installs without saying more belongs to the tools.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME tools)
