/* Asserts the byte offset of every field of the host's records, for 4-byte and for 8-byte pointers. It is compiled for
 * every target and never run. */
#include <stddef.h>
#include <stdint.h>

#include "plc_driver.h"

#define AT(record, field, offset) _Static_assert(offsetof(record, field) == (offset), #record "." #field)
#define SIZE(record, bytes) _Static_assert(sizeof(record) == (bytes), #record)
/* An offset or size that moves with the pointer's size. */
#if UINTPTR_MAX == 0xFFFFFFFFu
#define BY_POINTER(four, eight) (four)
#else
#define BY_POINTER(four, eight) (eight)
#endif

AT(DriverInfo, driver_code, 0);
AT(DriverInfo, driver_param, 2);
SIZE(DriverInfo, 4);

AT(CommSettings, host_word, 0);
AT(CommSettings, ip_address, 4);
AT(CommSettings, tcp_port, 8);
AT(CommSettings, host_byte, 10);
AT(CommSettings, socket_kind, 11);
SIZE(CommSettings, 12);

AT(ConnContext, socket_fd, 0);
AT(ConnContext, host_word, 4);
AT(ConnContext, recv_timeout_s, 8);
AT(ConnContext, timeout_ms, 12);
AT(ConnContext, delay_ms, 16);
SIZE(ConnContext, 20);

AT(RegRequest, area, 0);
AT(RegRequest, host_byte, 2);
AT(RegRequest, reg_type, 3);
AT(RegRequest, address, 4);
SIZE(RegRequest, 8);

AT(RegValue, count, 0);
AT(RegValue, data, BY_POINTER(4, 8));
SIZE(RegValue, BY_POINTER(8, 16));

AT(BatchReadRequest, area, 0);
AT(BatchReadRequest, host_byte, 2);
AT(BatchReadRequest, reg_type, 3);
AT(BatchReadRequest, address, 4);
AT(BatchReadRequest, count, 8);
AT(BatchReadRequest, host_area, 10);
AT(BatchReadRequest, value, 16);
SIZE(BatchReadRequest, 20);

AT(TagEntry, name, 0);
AT(TagEntry, type_code, 256);
AT(TagEntry, bit_width, 258);
AT(TagEntry, dim1_low, 260);
AT(TagEntry, dim1_high, 264);
AT(TagEntry, dim2_low, 268);
AT(TagEntry, dim2_high, 272);
AT(TagEntry, dim3_low, 276);
AT(TagEntry, dim3_high, 280);
AT(TagEntry, string_length, 284);
AT(TagEntry, shape, 288);
AT(TagEntry, is_global, 292);
AT(TagEntry, name_kind, 293);
AT(TagEntry, aux_flag, 294);
AT(TagEntry, tag_id, 296);
AT(TagEntry, scope_name, 300);
AT(TagEntry, local_index, 556);
AT(TagEntry, device_kind, 557);
SIZE(TagEntry, 560);

AT(IndexedTagEntry, count, 0);
AT(IndexedTagEntry, entries, BY_POINTER(4, 8));
SIZE(IndexedTagEntry, BY_POINTER(8, 16));

AT(TagTable, name, 0);
AT(TagTable, entries, BY_POINTER(4, 8));
AT(TagTable, indexed_groups, BY_POINTER(8, 16));
AT(TagTable, tag_count, BY_POINTER(12, 24));
AT(TagTable, max_indexed_id, BY_POINTER(16, 28));
AT(TagTable, links, BY_POINTER(20, 32));
SIZE(TagTable, BY_POINTER(28, 48));

AT(TypeEntry, name, 0);
AT(TypeEntry, bits, BY_POINTER(4, 8));
AT(TypeEntry, code, BY_POINTER(6, 10));
SIZE(TypeEntry, BY_POINTER(8, 16));

_Static_assert(PLC_OK == 0 && PLC_NO_CONNECT == 2 && PLC_FAILED == 3 && PLC_NO_WRITER == UINT32_MAX, "result codes");
