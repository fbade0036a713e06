// Which build of the driver a file is compiled for: by order (the contract) or guarded.
#pragma once

#ifndef PLC_GUARDED
#error "compiled once for each build: its target says which"
#endif

namespace plc {

// The guarded build would rather fail than pass on a value that may be wrong. Files that ask for it are compiled twice.
constexpr bool kGuarded = PLC_GUARDED != 0;

}  // namespace plc
