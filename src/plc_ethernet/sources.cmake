list(APPEND plc_driver_off_road
  ${CMAKE_CURRENT_LIST_DIR}/alternative_setup.cpp
  ${CMAKE_CURRENT_LIST_DIR}/socket_wrappers.cpp)
target_sources(plc_driver_objects PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/time_wrappers.cpp)
