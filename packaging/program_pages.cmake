# Manual pages and shell completions, made at build time from what the programs say with --help.

# A cross build runs its programs under the emulator of its toolchain file. Without one it takes the pages of a native
# build, which are the same.
set(PLC_PROGRAM_PAGES "" CACHE PATH "Folder packaging/pages of a native build, for builds whose programs do not run here")
set(plc_pages ${CMAKE_CURRENT_BINARY_DIR}/pages)
if(PLC_PROGRAM_PAGES)
  set(plc_pages ${PLC_PROGRAM_PAGES})
elseif(CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
  message(STATUS "no manual pages and completions: programs do not run here and PLC_PROGRAM_PAGES is not set")
  return()
endif()

# The date on the pages is that of the sources, when it is known.
set(pages_date "")
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  string(TIMESTAMP pages_date "%Y-%m-%d" UTC)
endif()
find_package(Python3 REQUIRED COMPONENTS Interpreter)
file(GLOB pages_scripts CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/pages/*.py)

add_custom_target(program_pages ALL)
# The pages of a program go with the component that it is in.
function(plc_add_program_pages name component)
  set(outputs ${plc_pages}/${name}.1 ${plc_pages}/${name}.1.gz ${plc_pages}/bash/${name} ${plc_pages}/zsh/_${name})
  if(NOT PLC_PROGRAM_PAGES)
    add_custom_command(OUTPUT ${outputs}
      COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/pages/make_pages.py --version ${PROJECT_VERSION}
              "--date=${pages_date}" --others ${ARGN} --output ${plc_pages} --name ${name} --
              ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${name}>
      DEPENDS ${name} ${pages_scripts} VERBATIM)
    add_custom_target(${name}_pages DEPENDS ${outputs})
    add_dependencies(program_pages ${name}_pages)
  endif()
  install(FILES ${plc_pages}/${name}.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${component})
  install(FILES ${plc_pages}/bash/${name} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    COMPONENT ${component})
  install(FILES ${plc_pages}/zsh/_${name} DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions
    COMPONENT ${component})
endfunction()

# The page of a file format, from its document.
function(plc_add_format_page name component summary document)
  if(NOT PLC_PROGRAM_PAGES)
    add_custom_command(OUTPUT ${plc_pages}/${name}.5 ${plc_pages}/${name}.5.gz
      COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/pages/format_page.py --version ${PROJECT_VERSION}
              "--date=${pages_date}" --name ${name} --summary ${summary} --output ${plc_pages}
              ${PROJECT_SOURCE_DIR}/${document} --others ${ARGN}
      DEPENDS ${PROJECT_SOURCE_DIR}/${document} ${pages_scripts} VERBATIM)
    add_custom_target(${name}_page DEPENDS ${plc_pages}/${name}.5 ${plc_pages}/${name}.5.gz)
    add_dependencies(program_pages ${name}_page)
  endif()
  install(FILES ${plc_pages}/${name}.5.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT ${component})
endfunction()

plc_add_program_pages(plc-host tools plc-sim tshark)
plc_add_format_page(plc-tags tools "tag files of the PLC driver" docs/tag_files.md plc-host\(1\) plc-sim\(1\))
plc_add_program_pages(plc-sim tools plc-host tshark)
if(PLC_BUILD_GATEWAY)
  plc_add_program_pages(plc-gateway gateway plc-host mosquitto)
endif()
