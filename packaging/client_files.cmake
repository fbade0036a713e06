# What building a program with the client library needs: library, header, and files for CMake and pkg-config. The
# package's configuration file is the driver's. Included where the library is declared.
install(TARGETS plc_client_shared EXPORT plc_clientTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT client NAMELINK_COMPONENT client_dev)
install(FILES ${PROJECT_SOURCE_DIR}/client/plc_client.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT client_dev)
install(EXPORT plc_clientTargets NAMESPACE plc_driver:: DESTINATION ${plc_config_folder} COMPONENT client_dev)

configure_file(${CMAKE_CURRENT_LIST_DIR}/plc_client.pc.in plc_client.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/plc_client.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT client_dev)
