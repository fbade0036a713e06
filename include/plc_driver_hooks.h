/* Hooks for programs that embed the driver and keep it to themselves: its lines, tag files from anywhere, a connect of
 * its own, and an end that gives everything back.
 *
 * Panels need none of them. As everything of the driver they work on the one instance that a loaded copy of the library
 * is, and are called by one thread at a time; whoever wants several instances loads several copies. */
#ifndef PLC_DRIVER_HOOKS_H
#define PLC_DRIVER_HOOKS_H

#include "plc_driver.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Takes one piece of what the driver would print: length bytes, with carriage return and line feed where the driver
 * writes them; a line may come in several pieces. The text is gone after the call. Calls nothing of the driver. */
typedef void (*PlcLineSink)(void* context, const char* text, uint32_t length);

/* From now on what the driver would print goes to sink, with context, instead of to standard output; a null sink brings
 * standard output back. The utilities of plc_ethernet.h and universal_api.h print as before. */
PLC_DRIVER_API void plc_driver_set_line_sink(PlcLineSink sink, void* context);

/* Loads the tag file at path, of any name and length, as the one that transfers of this area look for while
 * CommSettings.ip_address is ip_address: they then open no file. To be called after ev_plc_init, which forgets it as it
 * forgets every tag file. The records belong to the driver.
 * Returns 0; 3 for a null path, before ev_plc_init, when such a file is loaded already (it stays), and behind the lines
 * that a transfer prints when the file gives no record or memory runs out.
 * The numbers of the groups of indexed ids are one table for all loaded files, as with files that transfers load: files
 * whose indexed ids stand in the same blocks of 8192 belong in different copies of the library. */
PLC_DRIVER_API uint32_t plc_driver_load_tags(uint32_t ip_address, uint16_t area, const char* path);

/* What every transfer does first: connects and fetches the directory of programs unless that is done. Does not pause
 * and prints no line beside those of the connect. Returns 0, also when connected before and, with the contract build,
 * when the controller refused; 2 when there is no connection; 3 for a null pointer or before ev_plc_init. */
PLC_DRIVER_API uint32_t plc_driver_connect(ConnContext* conn);

/* Ends the use of this instance: closes every socket that the driver opened and has not closed (a program that calls
 * this closes none of them itself), stores -1 in conn->socket_fd, frees the tag files and the copies of strings,
 * forgets the sink and the settings. All is then as in a library just loaded, ready for ev_plc_init or dlclose. conn
 * may be null. A second call changes nothing. What an earlier ev_plc_init made the driver forget stays forgotten. */
PLC_DRIVER_API void plc_driver_release(ConnContext* conn);

#ifdef __cplusplus
}
#endif

#endif
