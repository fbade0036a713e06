// Frames of one read of the variable D, by hand, for tests of what speaks or reads the protocol beside the driver.
#pragma once

namespace plc_test {

inline constexpr char kDirectoryStart[] = "00 00 00 06 FF FF FF F9 00 00 0C 2C 00 00 00 00";
inline constexpr char kDirectoryRead[] = "00 00 00 06 FF FF FF F9 00 01 0C 25 00 00 00 00";
inline constexpr char kResolveD[] = "00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 01 00 01 00 44";
inline constexpr char kReadD[] = "00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 06 00 01 01 02 00 00";

}  // namespace plc_test
