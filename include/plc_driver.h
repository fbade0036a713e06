/* What a host sees of the driver: its records with their byte offsets, the result codes, the entry points and the
 * data type table.
 *
 * Offsets in comments are those of the panel (4-byte pointers, little-endian, natural alignment). On 64-bit builds only
 * what follows a pointer moves. All records belong to the host; the driver keeps a pointer only to CommSettings. */
#ifndef PLC_DRIVER_H
#define PLC_DRIVER_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Marks the functions and tables that the shared library exports. */
#define PLC_DRIVER_API __attribute__((visibility("default")))

/* Result codes of the transfer entry points. */
enum {
  PLC_OK = 0,         /* done */
  PLC_NO_CONNECT = 2, /* the connection could not be set up; batch read: also a reply that is too short */
  PLC_FAILED = 3      /* every other failure: tag file, tag id, a failed or empty exchange, a bad reply */
};
/* ev_plc_write only: the tag's bit width or bit kind has no write function. */
#define PLC_NO_WRITER 0xFFFFFFFFu

/* Filled by ev_plc_driver_info: four bytes. */
typedef struct DriverInfo {
  uint16_t driver_code;  /*  0: number of the driver, 722 */
  uint16_t driver_param; /*  2: its parameter, 1 */
} DriverInfo;

/* Settings given to ev_plc_init. The driver keeps the pointer and reads the record on every transfer. The host keeps it
 * alive and unchanged for as long as it uses the driver. ev_plc_init and the transfers read bytes 4 to 9 only. */
typedef struct CommSettings {
  uint32_t host_word;  /*  0: the host's own, not read */
  uint32_t ip_address; /*  4: IPv4 address, first dotted part in the most significant byte; names the tag files too */
  uint16_t tcp_port;   /*  8: TCP port in host byte order */
  uint8_t host_byte;   /* 10: the host's own, not read */
  uint8_t socket_kind; /* 11: read only by CommunicationSet: 'U' (0x55) stream socket, else datagram socket */
} CommSettings;

/* The host's record of one connection, last argument of every transfer. */
typedef struct ConnContext {
  int32_t socket_fd;       /*  0: the connected socket, written by the driver; -1 after the driver closed it */
  uint32_t host_word;      /*  4: the host's own, not used */
  uint32_t recv_timeout_s; /*  8: how long to wait for a reply, whole seconds; 0 polls once */
  uint32_t timeout_ms;     /* 12: milliseconds of ev_time_set mode 1; not used by transfers */
  uint32_t delay_ms;       /* 16: pause before each transfer, at most 1000 ms; 0 and 3 mean none */
} ConnContext;

/* One register: request of ev_plc_read and ev_plc_write. */
typedef struct RegRequest {
  uint16_t area;     /*  0: area number, the last number of the tag file's name */
  uint8_t host_byte; /*  2: not read */
  uint8_t reg_type;  /*  3: high part of the register id; values below 4 count as 0 and are set to 0 by the transfer */
  uint32_t address;  /*  4: high half: low part of the register id; low half: element offset */
} RegRequest;

/* Values of ev_plc_read and ev_plc_write. */
typedef struct RegValue {
  uint32_t count; /*  0: elements to transfer; 64-bit types count in 32-bit units. Transfers may rewrite it */
  uint8_t* data;  /*  4: the host's buffer, little-endian values; docs/host_contract.md gives its size */
} RegValue;

/* One element of the array given to ev_OMRON_plc_read; elements follow each other every 20 bytes. */
typedef struct BatchReadRequest {
  uint16_t area;        /*  0: only the first element's is used */
  uint8_t host_byte;    /*  2: not read */
  uint8_t reg_type;     /*  3: as in RegRequest, set to 0 when below 4 */
  uint32_t address;     /*  4: as in RegRequest */
  uint16_t count;       /*  8: number of registers that this element asks for */
  uint8_t host_area[6]; /* 10: not read */
  uint32_t value;       /* 16: receives the value */
} BatchReadRequest;

/* Bytes of a name in a record, its NUL included. */
enum { PLC_NAME_BYTES = 256 };

/* Shapes of a variable, TagEntry.shape. */
enum { PLC_SCALAR = 0, PLC_ARRAY1 = 1, PLC_STRING = 3, PLC_ARRAY2 = 4, PLC_ARRAY3 = 5 };

/* One declared variable. */
typedef struct TagEntry {
  char name[PLC_NAME_BYTES];       /*   0: UTF-8 with '#' before each subscript, NUL-terminated */
  uint16_t type_code;              /* 256: CIP type code, 0xC1 BOOL .. 0xD5 STRING2 */
  uint8_t bit_width;               /* 258: 1, 8, 16, 32, 64; 0 for strings, dates and times */
  int32_t dim1_low;                /* 260: the lowest subscript of the rightmost or only range */
  int32_t dim1_high;               /* 264: the highest subscript of that range */
  int32_t dim2_low;                /* 268: the lowest subscript of the range before it */
  int32_t dim2_high;               /* 272: the highest subscript of that range */
  int32_t dim3_low;                /* 276: the lowest subscript of the first of three ranges */
  int32_t dim3_high;               /* 280: the highest subscript of that range */
  int32_t string_length;           /* 284: declared length of a STRING, characters */
  uint32_t shape;                  /* 288: PLC_SCALAR .. PLC_ARRAY3 */
  uint8_t is_global;               /* 292: 1 global, else local to the program scope_name */
  uint8_t name_kind;               /* 293: 1 no '.', 2 '.' without ']', 3 both */
  uint8_t aux_flag;                /* 294: column 10, carried only */
  uint32_t tag_id;                 /* 296: column 8 */
  char scope_name[PLC_NAME_BYTES]; /* 300: program that owns a local variable */
  uint8_t local_index;             /* 556: that program's number */
  uint8_t device_kind;             /* 557: EM 23, MR 17, LR 18, DM 6, TM 8, FM 25, CM 7, ZF 44, none 30 */
} TagEntry;                        /* 560 bytes */

/* One group of indexed variables whose ids are consecutive. The record after the last group of a table has null
 * entries. */
typedef struct IndexedTagEntry {
  uint8_t count;     /*  0: records in the group; the other bytes of this word are not used */
  TagEntry* entries; /*  4: the records of the group */
} IndexedTagEntry;

/* The links of a TagTable; they point at the link pair of the neighbouring node. */
typedef struct TagLinks {
  struct TagLinks* next; /*  0: the table loaded before this one; after the oldest the list's head */
  struct TagLinks* prev; /*  4: the table loaded after this one; after the newest the list's head */
} TagLinks;

/* One loaded tag file. */
typedef struct TagTable {
  char* name;                      /*  0: owned copy of the file name */
  TagEntry* entries;               /*  4: plain variables, in file order */
  IndexedTagEntry* indexed_groups; /*  8: groups in file order, null when there are none */
  uint32_t tag_count;              /* 12: number of plain variables */
  uint32_t max_indexed_id;         /* 16: largest indexed id, 0 if none; itself not addressable */
  TagLinks links;                  /* 20: its neighbours among the loaded files */
} TagTable;                        /* 28 bytes */

/* One row of the data type table; the last row has an empty name and code 0xFFFF. */
typedef struct TypeEntry {
  const char* name; /*  0: as tag files have it, "INT" */
  uint16_t bits;    /*  4: width of an element; 0 for types without a fixed scalar width */
  uint16_t code;    /*  6: CIP type code */
} TypeEntry;

/* Version and build of the loaded library: "1.1.0 contract" or "1.1.0 guarded" (docs/host_contract.md explains how they
 * differ). The text lives as long as the library. */
PLC_DRIVER_API const char* plc_driver_build(void);

/* Fills info with 722 and 1. Returns 0, or 3 for a null pointer. */
PLC_DRIVER_API uint32_t ev_plc_driver_info(DriverInfo* info);

/* Takes the settings. Forgets the loaded tag files and the connection; an open socket stays open. Sets SIGPIPE to
 * ignored if it has its default action. Does not connect. Returns 0, or 3 for a null pointer. */
PLC_DRIVER_API uint32_t ev_plc_init(CommSettings* settings);

/* Does nothing. Returns 0. */
PLC_DRIVER_API uint32_t ev_OMRON_plc_register(void);

/* Reads value->count elements of one variable into value->data. Returns 0, 2 or 3. Rewrites request->reg_type (0 when
 * below 4) and value->count (halved for 64-bit types, 1 for strings) whatever the result. */
PLC_DRIVER_API uint32_t ev_plc_read(RegRequest* request, RegValue* value, ConnContext* conn);

/* Writes value->count elements of one variable from value->data. Returns 0, 2, 3 or PLC_NO_WRITER. Rewrites
 * request->reg_type and, for strings, value->count; writes of a bit inside a word leave the bits that were read in the
 * first bits of value->data. */
PLC_DRIVER_API uint32_t ev_plc_write(RegRequest* request, RegValue* value, ConnContext* conn);

/* Reads count (at most 100) elements, storing each value into the element. Returns 0, 2 or 3. Rewrites reg_type. A
 * string element receives the address of a NUL-terminated copy, valid until the next batch read. */
PLC_DRIVER_API uint32_t ev_OMRON_plc_read(BatchReadRequest* elements, int32_t count, ConnContext* conn);

/* The data types by name, 22 rows, searched in table order. */
PLC_DRIVER_API extern const TypeEntry type_list[22];

/* Name of the type with this code in a static buffer that the next call overwrites; null when unknown. */
PLC_DRIVER_API char* type2str(uint32_t code);

/* Bit width of the type with this code; 0 when unknown. Clears the buffer of type2str. */
PLC_DRIVER_API uint32_t type2bits(uint32_t code);

/* Element-size code of a request: 1 for 1 and 16 bits, 2 for 32, 4 for 64, fallback for 0, else bits. */
PLC_DRIVER_API int32_t keyence_gettype(int32_t bits, int32_t fallback);

/* Elements of this width in count bytes, truncated toward zero. 1 for width 0, bits itself for an unknown width. */
PLC_DRIVER_API int32_t keyence_getnum(int32_t bits, int32_t count);

#ifdef __cplusplus
}
#endif

#endif
