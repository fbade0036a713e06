// Frames that several tests of plc-sim send, written by hand: the directory's two, and D resolved and read.
#pragma once

namespace plc_sim {

constexpr const char* kStartAsked = "00 00 00 06 FF FF FF F9 00 00 0C 2C 00 00 00 00";
constexpr const char* kDirectoryAsked = "00 00 00 06 FF FF FF F9 00 01 0C 25 00 00 00 00";
constexpr const char* kResolveD = "00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 01 00 01 00 44";
constexpr const char* kReadD = "00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 06 00 01 01 02 00 00";

}  // namespace plc_sim
