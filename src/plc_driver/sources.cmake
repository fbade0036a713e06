# Sources of the driver proper: those that both builds share and those that are compiled for each, on the road of a read
# or a word write and off it; and those that one build has alone. Those that only some targets need are named in
# src/CMakeLists.txt.
list(APPEND plc_driver_off_road
  ${CMAKE_CURRENT_LIST_DIR}/diagnostics.cpp
  ${CMAKE_CURRENT_LIST_DIR}/host/hooks.cpp
  ${CMAKE_CURRENT_LIST_DIR}/protocol/writes/bit_core.cpp
  ${CMAKE_CURRENT_LIST_DIR}/protocol/writes/write_bits.cpp
  ${CMAKE_CURRENT_LIST_DIR}/protocol/writes/write_strings.cpp
  ${CMAKE_CURRENT_LIST_DIR}/tags/file_status.cpp
  ${CMAKE_CURRENT_LIST_DIR}/tags/tag_file.cpp)
target_sources(plc_driver_objects PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/driver_state.cpp
  ${CMAKE_CURRENT_LIST_DIR}/host/transfer.cpp
  ${CMAKE_CURRENT_LIST_DIR}/protocol/reads/read_plan.cpp
  ${CMAKE_CURRENT_LIST_DIR}/protocol/handles/resolve_request.cpp
  ${CMAKE_CURRENT_LIST_DIR}/protocol/reads/string_copies.cpp
  ${CMAKE_CURRENT_LIST_DIR}/protocol/handles/value_request.cpp
  ${CMAKE_CURRENT_LIST_DIR}/protocol/writes/word_bits.cpp
  ${CMAKE_CURRENT_LIST_DIR}/protocol/writes/write_core.cpp
  ${CMAKE_CURRENT_LIST_DIR}/protocol/writes/write_words.cpp
  ${CMAKE_CURRENT_LIST_DIR}/tags/data_types.cpp
  ${CMAKE_CURRENT_LIST_DIR}/tags/decimal.cpp
  ${CMAKE_CURRENT_LIST_DIR}/tags/element_name.cpp
  ${CMAKE_CURRENT_LIST_DIR}/tags/line_reader.cpp
  ${CMAKE_CURRENT_LIST_DIR}/tags/scope_match.cpp
  ${CMAKE_CURRENT_LIST_DIR}/tags/tag_line.cpp
  ${CMAKE_CURRENT_LIST_DIR}/tags/tag_lookup.cpp
  ${CMAKE_CURRENT_LIST_DIR}/tags/tag_table.cpp
  ${CMAKE_CURRENT_LIST_DIR}/text/utf16.cpp
)

set(plc_driver_twice
  ${CMAKE_CURRENT_LIST_DIR}/host/entry_points.cpp
  ${CMAKE_CURRENT_LIST_DIR}/protocol/link/exchange.cpp
  ${CMAKE_CURRENT_LIST_DIR}/protocol/reads/read_single.cpp)
set(plc_driver_twice_off_road
  ${CMAKE_CURRENT_LIST_DIR}/build_name.cpp
  ${CMAKE_CURRENT_LIST_DIR}/protocol/link/connection.cpp
  ${CMAKE_CURRENT_LIST_DIR}/protocol/link/directory.cpp
  ${CMAKE_CURRENT_LIST_DIR}/protocol/reads/read_batch.cpp
  ${CMAKE_CURRENT_LIST_DIR}/protocol/writes/write_dispatch.cpp)
set(plc_driver_by_order_alone
  ${CMAKE_CURRENT_LIST_DIR}/protocol/link/transaction_by_order.cpp)
set(plc_driver_guarded_alone
  ${CMAKE_CURRENT_LIST_DIR}/protocol/link/transaction_guarded.cpp)
set(plc_driver_guarded_alone_off_road
  ${CMAKE_CURRENT_LIST_DIR}/guard_lines.cpp
  ${CMAKE_CURRENT_LIST_DIR}/host/batch_limits.cpp
  ${CMAKE_CURRENT_LIST_DIR}/host/program_choice.cpp
  ${CMAKE_CURRENT_LIST_DIR}/protocol/frames/reply_rules.cpp)
