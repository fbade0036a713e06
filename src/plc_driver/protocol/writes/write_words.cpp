// The named word, double-word and quad-word writes: one statement each.
#include "plc_driver/protocol/writes/write_core.h"
#include "plc_driver/protocol/writes/write_functions.h"

using plc::kGlobal;
using plc::local_scope;
using plc::write_elements;

namespace {
constexpr uint32_t kWord = 1;
constexpr uint32_t kDoubleWord = 2;
constexpr uint32_t kQuadWord = 4;
}  // namespace

extern "C" {

// Of all writes, only the two scalar word writes want an acknowledgment of 13 bytes (D26).
int32_t ev_plc_write_words(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag) {
  return write_elements(request, value, conn, tag, {kWord, PLC_SCALAR, kGlobal, 0, plc::kLeastWordAckBytes});
}

int32_t ev_plc_write_words_local(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag, uint8_t,
                                 uint8_t local_index) {
  return write_elements(request, value, conn, tag,
                        {kWord, PLC_SCALAR, local_scope(local_index), 0, plc::kLeastWordAckBytes});
}

int32_t ev_plc_write_array_words(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag) {
  return write_elements(request, value, conn, tag, {kWord, PLC_ARRAY1, kGlobal});
}

int32_t ev_plc_write_array_words_local(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag, uint8_t,
                                       uint8_t local_index) {
  return write_elements(request, value, conn, tag, {kWord, PLC_ARRAY1, local_scope(local_index)});
}

int32_t ev_plc_write_array2_words(RegRequest* request, RegValue* value, ConnContext* conn, uint32_t dim1_high,
                                  TagEntry* tag) {
  return write_elements(request, value, conn, tag, {kWord, PLC_ARRAY2, kGlobal, dim1_high});
}

int32_t ev_plc_write_array2_words_local(RegRequest* request, RegValue* value, ConnContext* conn, uint32_t dim1_high,
                                        TagEntry* tag, uint8_t, uint8_t local_index) {
  return write_elements(request, value, conn, tag, {kWord, PLC_ARRAY2, local_scope(local_index), dim1_high});
}

int32_t ev_plc_write_array3_words(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry tag) {
  return write_elements(request, value, conn, &tag, {kWord, PLC_ARRAY3, kGlobal});
}

int32_t ev_plc_write_array3_words_local(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry tag) {
  return write_elements(request, value, conn, &tag, {kWord, PLC_ARRAY3, local_scope(tag.local_index)});
}

int32_t ev_plc_write_dwords(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag) {
  return write_elements(request, value, conn, tag, {kDoubleWord, PLC_SCALAR, kGlobal});
}

int32_t ev_plc_write_dwords_local(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag, uint8_t,
                                  uint8_t local_index) {
  return write_elements(request, value, conn, tag, {kDoubleWord, PLC_SCALAR, local_scope(local_index)});
}

int32_t ev_plc_write_array_dwords(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag) {
  return write_elements(request, value, conn, tag, {kDoubleWord, PLC_ARRAY1, kGlobal});
}

int32_t ev_plc_write_array_dwords_local(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag, uint8_t,
                                        uint8_t local_index) {
  return write_elements(request, value, conn, tag, {kDoubleWord, PLC_ARRAY1, local_scope(local_index)});
}

int32_t ev_plc_write_array2_dwords(RegRequest* request, RegValue* value, ConnContext* conn, uint32_t dim1_high,
                                   TagEntry* tag) {
  return write_elements(request, value, conn, tag, {kDoubleWord, PLC_ARRAY2, kGlobal, dim1_high});
}

int32_t ev_plc_write_array2_dwords_local(RegRequest* request, RegValue* value, ConnContext* conn, uint32_t dim1_high,
                                         TagEntry* tag, uint8_t, uint8_t local_index) {
  return write_elements(request, value, conn, tag, {kDoubleWord, PLC_ARRAY2, local_scope(local_index), dim1_high});
}

int32_t ev_plc_write_array3_dwords(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry tag) {
  return write_elements(request, value, conn, &tag, {kDoubleWord, PLC_ARRAY3, kGlobal});
}

int32_t ev_plc_write_array3_dwords_local(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry tag) {
  return write_elements(request, value, conn, &tag, {kDoubleWord, PLC_ARRAY3, local_scope(tag.local_index)});
}

int32_t ev_plc_write_4words(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag) {
  return write_elements(request, value, conn, tag, {kQuadWord, PLC_SCALAR, kGlobal});
}

int32_t ev_plc_write_4words_local(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag, uint8_t,
                                  uint8_t local_index) {
  return write_elements(request, value, conn, tag, {kQuadWord, PLC_SCALAR, local_scope(local_index)});
}

int32_t ev_plc_write_array_4words(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag) {
  return write_elements(request, value, conn, tag, {kQuadWord, PLC_ARRAY1, kGlobal});
}

int32_t ev_plc_write_array_4words_local(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag, uint8_t,
                                        uint8_t local_index) {
  return write_elements(request, value, conn, tag, {kQuadWord, PLC_ARRAY1, local_scope(local_index)});
}

int32_t ev_plc_write_array2_4words(RegRequest* request, RegValue* value, ConnContext* conn, uint32_t dim1_high,
                                   TagEntry* tag) {
  return write_elements(request, value, conn, tag, {kQuadWord, PLC_ARRAY2, kGlobal, dim1_high});
}

int32_t ev_plc_write_array2_4words_local(RegRequest* request, RegValue* value, ConnContext* conn, uint32_t dim1_high,
                                         TagEntry* tag, uint8_t, uint8_t local_index) {
  return write_elements(request, value, conn, tag, {kQuadWord, PLC_ARRAY2, local_scope(local_index), dim1_high});
}

int32_t ev_plc_write_array3_4words(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry tag) {
  return write_elements(request, value, conn, &tag, {kQuadWord, PLC_ARRAY3, kGlobal});
}

int32_t ev_plc_write_array3_4words_local(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry tag) {
  return write_elements(request, value, conn, &tag, {kQuadWord, PLC_ARRAY3, local_scope(tag.local_index)});
}
}
