# The Debian packages, one of each component.

# The library's symbols come from C libraries of 2012 on; the tools from the one that they are built with.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME plc-driver)
set(CPACK_PACKAGE_VENDOR "the plc_driver authors")
set(CPACK_PACKAGE_CONTACT "${PLC_PACKAGE_CONTACT}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime dev tools)
if(PLC_BUILD_CLIENT)
  list(APPEND CPACK_COMPONENTS_ALL client client_dev)
endif()
if(PLC_BUILD_PYTHON)
  list(APPEND CPACK_COMPONENTS_ALL python)
endif()
if(PLC_BUILD_GATEWAY)
  list(APPEND CPACK_COMPONENTS_ALL gateway)
endif()
if(PLC_BUILD_SITE)
  list(APPEND CPACK_COMPONENTS_ALL doc)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${PLC_DEBIAN_ARCHITECTURE})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(this_version "= ${PROJECT_VERSION}")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libplc-driver1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6 (>= 2.17)")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}
 The shared library that a panel's runtime loads.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/triggers)

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libplc-driver-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libplc-driver1 (${this_version})")
set(CPACK_COMPONENT_DEV_DESCRIPTION "${PROJECT_DESCRIPTION} (headers)
 Headers, the static libraries, and files for CMake and pkg-config.")

# Its own driver is the guarded build of libplc-driver1.
set(CPACK_DEBIAN_CLIENT_PACKAGE_NAME libplc-client1)
set(CPACK_DEBIAN_CLIENT_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_CLIENT_PACKAGE_DEPENDS
  "libplc-driver1 (${this_version}), libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 12)")
set(CPACK_COMPONENT_CLIENT_DESCRIPTION "Variables of a Keyence KV-8000 controller by name, for programs
 The shared library that programs in C++ are linked with.")
set(CPACK_DEBIAN_CLIENT_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/triggers)

set(CPACK_DEBIAN_CLIENT_DEV_PACKAGE_NAME libplc-client-dev)
set(CPACK_DEBIAN_CLIENT_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_CLIENT_DEV_PACKAGE_DEPENDS "libplc-client1 (${this_version}), libplc-driver-dev (${this_version})")
set(CPACK_COMPONENT_CLIENT_DEV_DESCRIPTION "Variables of a Keyence KV-8000 controller by name (header)
 Header, examples, and files for CMake and pkg-config.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME plc-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libplc-driver1 (${this_version}), libc6 (>= 2.34), libmicrohttpd12, libpcap0.8")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "tshark, wireshark")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "${PROJECT_DESCRIPTION} (tools)
 A command-line host with a checker of tag files (plc-host), a simulated controller (plc-sim), and a dissector of the
 protocol for Wireshark and tshark.")

# Built with the libraries of one Debian, on the machine that builds. Its units are there and none is enabled. procps has
# the /bin/kill of their reload.
set(CPACK_DEBIAN_GATEWAY_PACKAGE_NAME plc-gateway)
set(CPACK_DEBIAN_GATEWAY_PACKAGE_SECTION net)
set(CPACK_DEBIAN_GATEWAY_PACKAGE_DEPENDS
    "libplc-driver1 (${this_version}), libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 12), libmicrohttpd12, \
libmosquitto1 (>= 2.0), libprometheus-cpp-core1.0, libprotobuf-lite32, libsqlite3-0 (>= 3.40), libssl3, libsystemd0, \
procps, systemd")
set(CPACK_DEBIAN_GATEWAY_PACKAGE_SUGGESTS "mosquitto, mosquitto-clients, plc-tools")
set(CPACK_DEBIAN_GATEWAY_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_SOURCE_DIR}/gateway/postinst ${CMAKE_CURRENT_SOURCE_DIR}/gateway/prerm
  ${CMAKE_CURRENT_SOURCE_DIR}/gateway/postrm)
set(CPACK_COMPONENT_GATEWAY_DESCRIPTION "${PROJECT_DESCRIPTION} (gateway)
 Publishes the variables of a controller on an MQTT broker, as a Sparkplug B edge node with one device. It contains the
 program plc-gateway and a systemd unit for each controller, which the installation does not enable.")

# The same for every machine.
set(CPACK_DEBIAN_DOC_PACKAGE_NAME plc-driver-doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_SUGGESTS www-browser)
set(CPACK_COMPONENT_DOC_DESCRIPTION "${PROJECT_DESCRIPTION} (pages)
 The pages and the reference of the C, C++ and Python interfaces, for a browser, with a search:
 /usr/share/doc/plc-driver-doc/html/index.html")

# The compiled half is for the Python of one Debian.
set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-plc-client)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "libplc-driver1 (${this_version}), libc6 (>= 2.34), libstdc++6 (>= 12), ${plc_python_depends}")
set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS "plc-tools (${this_version})")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-numpy")
set(CPACK_COMPONENT_PYTHON_DESCRIPTION "${PROJECT_DESCRIPTION} (Python)
 The Python package plc_client: variables of a controller by name, read, written and watched, and with plc-tools a
 simulated controller for tests.")
include(CPack)
