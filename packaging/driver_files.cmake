# What building a host with the driver needs: libraries, headers, and files for CMake and pkg-config.
include(CMakePackageConfigHelpers)

install(TARGETS plc_driver plc_driver_static EXPORT plc_driverTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
# The same names in a folder of their own: a host chooses a build by the folder.
set(guarded_folder ${CMAKE_INSTALL_LIBDIR}/plc_driver/guarded)
install(TARGETS plc_driver_guarded plc_driver_guarded_static EXPORT plc_driverTargets
  LIBRARY DESTINATION ${guarded_folder} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${guarded_folder} COMPONENT dev)
install(FILES ${PROJECT_SOURCE_DIR}/include/plc_driver.h ${PROJECT_SOURCE_DIR}/include/plc_driver_hooks.h
  ${PROJECT_SOURCE_DIR}/include/plc_ethernet.h ${PROJECT_SOURCE_DIR}/include/universal_api.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)

configure_package_config_file(plc_driverConfig.cmake.in plc_driverConfig.cmake INSTALL_DESTINATION ${plc_config_folder})
write_basic_package_version_file(plc_driverConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/plc_driverConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/plc_driverConfigVersion.cmake DESTINATION ${plc_config_folder} COMPONENT dev)
install(EXPORT plc_driverTargets NAMESPACE plc_driver:: DESTINATION ${plc_config_folder} COMPONENT dev)

set(pc_libdir ${CMAKE_INSTALL_LIBDIR})
set(pc_build "contract build")
set(pc_search "")
configure_file(plc_driver.pc.in plc_driver.pc @ONLY)
# A program that is linked with the guarded build finds it where it was linked: the system's folders hold the contract's.
set(pc_libdir ${guarded_folder})
set(pc_build "guarded build")
set(pc_search "-Wl,-rpath,\${libdir} ")
configure_file(plc_driver.pc.in plc_driver_guarded.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/plc_driver.pc ${CMAKE_CURRENT_BINARY_DIR}/plc_driver_guarded.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
