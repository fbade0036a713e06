list(APPEND plc_driver_off_road
  ${CMAKE_CURRENT_LIST_DIR}/bit_lengths.cpp
  ${CMAKE_CURRENT_LIST_DIR}/crc16.cpp
  ${CMAKE_CURRENT_LIST_DIR}/file_md5.cpp
  ${CMAKE_CURRENT_LIST_DIR}/file_span.cpp
  ${CMAKE_CURRENT_LIST_DIR}/hex_dump.cpp
  ${CMAKE_CURRENT_LIST_DIR}/random_seed.cpp
  ${CMAKE_CURRENT_LIST_DIR}/text_log.cpp)
