// The numbers in the head of a TCP segment.
#pragma once

#include <cstddef>
#include <cstdint>

namespace plc_sim {
namespace tcp {

constexpr uint8_t kProtocol = 6;  // in the head of IP
constexpr size_t kHeadBytes = 20;

constexpr uint8_t kFin = 0x01;
constexpr uint8_t kSyn = 0x02;
constexpr uint8_t kReset = 0x04;
constexpr uint8_t kPush = 0x08;
constexpr uint8_t kAck = 0x10;

}  // namespace tcp
}  // namespace plc_sim
