// Marks the driver's own functions that have a fixed name: exported in the version node PLC_DRIVER_PRIVATE for
// diagnosis in the field and for tests of the shipped binary, and no part of the contract with hosts.
#pragma once

#define PLC_PRIVATE_API __attribute__((visibility("default")))
