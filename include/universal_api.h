/* General helpers that the library exports beside the driver: file MD5, CRC-16, hex dumps, a log file, a clock seed,
 * positioned file read and write, bit lengths. */
#ifndef UNIVERSAL_API_H
#define UNIVERSAL_API_H

#include "plc_driver.h"

#ifdef __cplusplus
extern "C" {
#endif

PLC_DRIVER_API int32_t CalcFileMD5(char* path, char* out);
PLC_DRIVER_API void md5(void);
PLC_DRIVER_API uint16_t crc16(const uint8_t* bytes, uint32_t length);
PLC_DRIVER_API int32_t dump_b(const uint8_t* bytes, int32_t length);
PLC_DRIVER_API int32_t _dump(const char* title, const uint8_t* bytes, int32_t length);
PLC_DRIVER_API void ev_log(const char* path, const char* format, ...) __attribute__((format(printf, 2, 3)));
PLC_DRIVER_API void ev_srand(void);
PLC_DRIVER_API int32_t Read_File(const char* path, uint8_t* out, int32_t offset, uint32_t length);
PLC_DRIVER_API int32_t Write_File(const char* path, const uint8_t* bytes, int32_t offset, uint32_t length);
PLC_DRIVER_API uint32_t bit2byte_len(uint32_t bits);
PLC_DRIVER_API uint32_t bit2word_len(uint32_t bits);

#ifdef __cplusplus
}
#endif

#endif
