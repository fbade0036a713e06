/* Hooks for programs that embed the driver. They redirect its lines, load tag files from any path, connect without a
 * transfer, and release everything at the end.
 *
 * Panels do not need them. A loaded copy of the library is one instance, which one thread at a time uses. To have
 * several instances, load several copies. */
#ifndef PLC_DRIVER_HOOKS_H
#define PLC_DRIVER_HOOKS_H

#include "plc_driver.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Takes one piece of what the driver would print: length bytes, with the carriage returns and line feeds of the driver.
 * A line may come in several pieces. The text is gone after the call. The function must not call the driver. */
typedef void (*PlcLineSink)(void* context, const char* text, uint32_t length);

/* Sends what the driver would print to sink, with context, instead of to standard output. A null sink brings standard
 * output back. The utilities of plc_ethernet.h and universal_api.h print as before. */
PLC_DRIVER_API void plc_driver_set_line_sink(PlcLineSink sink, void* context);

/* Loads the tag file at path, of any name and length, for transfers of this area while CommSettings.ip_address is
 * ip_address. They then do not open a file. Call it after ev_plc_init, which forgets this file like every tag file. The
 * records belong to the driver.
 * Returns 0, or 3: for a null path, before ev_plc_init, or if such a file is loaded already (it stays). Also returns 3
 * if the file gives no record or memory runs out, after the lines that a transfer prints then.
 * All loaded files share one table of groups of indexed ids. Files with indexed ids in the same blocks of 8192 belong
 * in different copies of the library. */
PLC_DRIVER_API uint32_t plc_driver_load_tags(uint32_t ip_address, uint16_t area, const char* path);

/* What every transfer does first: connects and fetches the directory of programs unless that is done. Does not pause
 * and prints only the lines of the connect. Returns 0 if connected, also if that was done before. The contract build
 * also returns 0 if the controller refused. Returns 2 without a connection, 3 for a null pointer or before ev_plc_init.
 */
PLC_DRIVER_API uint32_t plc_driver_connect(ConnContext* conn);

/* Ends the use of this instance. Closes every socket that the driver opened and has not closed; the program must not
 * close them itself. Stores -1 in conn->socket_fd, frees the tag files and the copies of strings, and forgets the sink
 * and the settings. The library is then as if just loaded, ready for ev_plc_init or dlclose. conn may be null. A second
 * call changes nothing. What an earlier ev_plc_init made the driver forget stays forgotten. */
PLC_DRIVER_API void plc_driver_release(ConnContext* conn);

#ifdef __cplusplus
}
#endif

#endif
