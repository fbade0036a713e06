# The sources of the library, a list per folder.
include(${CMAKE_CURRENT_LIST_DIR}/plc_driver/sources.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/plc_ethernet/sources.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/universal_api/sources.cmake)
