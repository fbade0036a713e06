// The directory of the controller's programs, fetched right after each connect.
#pragma once

#include <cstdint>

#include "plc_driver.h"
#include "plc_driver/private_api.h"

extern "C" {

// Fetches LocalInfo and localNum. Returns 0, also for an empty directory; 3 when an exchange failed (the connection
// flag is then cleared) or a reply was empty, the old directory stays.
PLC_PRIVATE_API uint32_t KV8000_get_localMSG(ConnContext* conn);

// Connects with the settings of ev_plc_init and fetches the directory, even when the connect failed. Returns the
// connect's result, 0 or -1; guarded, a connect without a whole directory is closed and -1.
PLC_PRIVATE_API int KV8000_init(ConnContext* conn);
}
