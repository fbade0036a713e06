/* General helpers that the library exports: file MD5, CRC-16, hex dumps, a log file, a clock seed, positioned file read
 * and write, bit lengths.
 *
 * The driver itself uses none of them. No pointer may be null unless the text of the function allows it. Only the MD5
 * functions keep state after a call. Every call closes the file that it opened; a program that the host starts in the
 * meantime does not inherit it. Printed lines go to standard output through puts, which ends each with a line feed. */
#ifndef UNIVERSAL_API_H
#define UNIVERSAL_API_H

#include "plc_driver.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Digests the file at path into out: 32 lowercase hexadecimal digits and a NUL, 33 bytes.
 * A path that begins with a double quote character loses its first and its last character, in place. The path "exit",
 * quoted or not, ends the process with status 0.
 * Returns 1, or 0 with out untouched and one line printed. The line is "Can not open this file!" if the file cannot be
 * opened or read. It is "Sorry! Can not calculate files which larger than 2 GB!" for 2^31 bytes or more and for
 * folders. The library has one state for the process: two digests must not run at the same time. */
PLC_DRIVER_API int32_t CalcFileMD5(char* path, char* out);

/* One MD5 step over the current block of that state; no caller but CalcFileMD5 can fill the block. */
PLC_DRIVER_API void md5(void);

/* CRC-16 of Modbus RTU, its two bytes exchanged: the high byte is the one that goes on the wire first.
 * The length counts in 8 bits: ((length - 1) mod 256) + 1 bytes are read, 256 for 256 and 1 for 257.
 * Length 0 gives 0xFFFF and reads nothing; bytes may then be null. */
PLC_DRIVER_API uint16_t crc16(const uint8_t* bytes, uint32_t length);

/* Prints "[dump_b] len=", the length, and the bytes as "0x%02x ", ten a line, every line ending in "\r\n".
 * A length below 1 prints only the head; bytes may then be null. Returns the result of the last puts. */
PLC_DRIVER_API int32_t dump_b(const uint8_t* bytes, int32_t length);

/* dump_b under the caller's title: "[title]", a tab, "len=", then as above. */
PLC_DRIVER_API int32_t _dump(const char* title, const uint8_t* bytes, int32_t length);

/* Appends one formatted text to the file at path, created when missing; a text above 255 bytes is cut to 255.
 * A file that cannot be opened or written loses the text silently. */
PLC_DRIVER_API void ev_log(const char* path, const char* format, ...) __attribute__((format(printf, 2, 3)));

/* Seeds rand with the seconds plus the microseconds of the clock, modulo 2^32. */
PLC_DRIVER_API void ev_srand(void);

/* Reads up to length bytes at offset (bytes from the start) of the file at path. A missing file is created empty with
 * mode 0644. out has room for length bytes. On a pipe or a terminal the offset does not count.
 * Returns the bytes read, fewer than length near the end and 0 past it. Returns -1 if the file cannot be opened or
 * read, or offset is negative. Also returns -1 if the system gives the file descriptor 0, in a process without a
 * standard input. */
PLC_DRIVER_API int32_t Read_File(const char* path, uint8_t* out, int32_t offset, uint32_t length);

/* Writes length bytes at offset of the file at path, created with mode 0644 when missing. The file is not cut: the
 * bytes before and after the span stay. Returns the bytes written, which may be fewer; -1 as Read_File does. */
PLC_DRIVER_API int32_t Write_File(const char* path, const uint8_t* bytes, int32_t offset, uint32_t length);

/* Bytes that hold this many bits. */
PLC_DRIVER_API uint32_t bit2byte_len(uint32_t bits);

/* 16-bit words that hold this many bits. */
PLC_DRIVER_API uint32_t bit2word_len(uint32_t bits);

#ifdef __cplusplus
}
#endif

#endif
