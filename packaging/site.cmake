# The site of the pages: made by scripts/site when something that it is made of has changed, and installed.
set(plc_site ${CMAKE_CURRENT_BINARY_DIR}/site)
execute_process(COMMAND git ls-files -- *.md docs include client/plc_client.h python/plc_client scripts/site scripts/*.py
                WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE plc_site_sources ERROR_QUIET)
string(REGEX REPLACE "\n+" ";" plc_site_sources "${plc_site_sources}")
list(FILTER plc_site_sources EXCLUDE REGEX "^$")
list(TRANSFORM plc_site_sources PREPEND ${PROJECT_SOURCE_DIR}/)
add_custom_command(OUTPUT ${plc_site}/index.html COMMAND ${PROJECT_SOURCE_DIR}/scripts/site ${plc_site}
                   DEPENDS ${plc_site_sources} COMMENT "The site of the pages" VERBATIM)
add_custom_target(plc_site ALL DEPENDS ${plc_site}/index.html)
install(DIRECTORY ${plc_site}/ DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/plc-driver-doc/html COMPONENT doc
        PATTERN .plc_driver_site EXCLUDE)
