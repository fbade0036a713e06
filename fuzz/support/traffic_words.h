// Requests and replies for fuzz inputs to begin with: each a whole frame, which further bytes change.
#pragma once

#include <cstdint>
#include <vector>

#include "fuzz_input.h"

namespace fuzz {

using Frame = std::vector<uint8_t>;

// Sets length and complement to what the frame has.
inline void set_length(Frame& frame, size_t counted) {
  for (unsigned i = 0; i < 4 && frame.size() >= 8; ++i) {
    frame[i] = static_cast<uint8_t>(counted >> (24 - 8 * i));
    frame[i + 4] = static_cast<uint8_t>(~frame[i]);
  }
}

inline Frame frame_of(uint8_t sequence, uint8_t request_class, uint8_t command, const Frame& body) {
  Frame frame = {0, 0, 0, 0, 0, 0, 0, 0, 0, sequence, request_class, command};
  frame.insert(frame.end(), body.begin(), body.end());
  set_length(frame, frame.size() - 10);
  return frame;
}

inline void append_name(Frame& body, uint8_t letter, uint8_t letters) {
  body.insert(body.end(), {0, letters});
  for (uint8_t i = 0; i < letters; ++i) body.insert(body.end(), {0, letter});
}

// One of the requests that the driver sends.
inline Frame request_of(Input& input) {
  const uint8_t sequence = input.byte() % 4;
  const uint8_t kind = input.byte();
  const uint8_t letter = static_cast<uint8_t>('A' + kind / 16);
  switch (kind % 12) {
    case 0:
      return frame_of(sequence, 0x0C, 0x2C, {0, 0, 0, 0});
    case 1:
      return frame_of(sequence, 0x0C, 0x25, {0, 0, 0, 0});
    case 2: {
      Frame body = {0, 1, 0, 0, 0, 1};
      append_name(body, letter, 3);
      return frame_of(sequence, 0x0C, 0x28, body);
    }
    case 3: {
      Frame body = {0, 1, 1, 1, 0, 5, 0, 0, 0, 0, 0, 2};
      append_name(body, letter, 2);
      append_name(body, letter, 1);
      return frame_of(sequence, 0x0C, 0x28, body);
    }
    case 4: {
      Frame body = {0, 1, 0, 0, 0, 7};
      for (uint8_t i = 0; i < 7; ++i) append_name(body, static_cast<uint8_t>(letter + i), 1);
      return frame_of(sequence, 0x0C, 0x28, body);
    }
    case 5: {
      Frame body = {0, 2, 0, 0, 0, 2};
      append_name(body, letter, 2);
      body.insert(body.end(), {1, 1, 0, 5, 0, 0, 0, 0, 0, 1});
      append_name(body, letter, 2);
      return frame_of(sequence, 0x0C, 0x28, body);
    }
    case 6:
      return frame_of(sequence, 0x1E, 0x09, {0, 0, 1, 0, 0, 0, 0, 6, 0, 1, 1, 2, 0, letter});
    case 7:
      return frame_of(sequence, 0x1E, 0x09, {0, 0, 2, 0, 0, 0, 0, 6, 0, 1, 1, 2, 0, 0, 0, 6, 0, 2, 1, 2, 0, 4});
    case 8:
      return frame_of(sequence, 0x1E, 0x01, {0, 6, 0, 0, 0, 2, 1, 2, 0, 0, 1, 2, 3, 4});
    case 9:
      return frame_of(sequence, 0x1E, 0x03, {0, 1, 6, 1, 2, 0, 0, letter % 2 == 0, 0, 1});
    case 10:
      return frame_of(sequence, 0x32, 0x00, {1, 17, 0, 5});
    default:
      return frame_of(sequence, 0x33, 0x00, {1, 17, 0, 5});
  }
}

// One of the replies that a controller sends.
inline Frame reply_of(Input& input) {
  const uint8_t sequence = input.byte() % 4;
  const uint8_t kind = input.byte();
  const uint8_t status = kind / 16 % 4 == 3 ? uint8_t{4} : uint8_t{0};
  const Frame record = {0, 0, 0, 0, 6, 1, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, kind >= 0x80};
  switch (kind % 8) {
    case 0:
      return frame_of(sequence, 0x0C, 0x2C, {0, status});
    case 1:
      return frame_of(sequence, 0x0C, 0x25, {0, status, 1, 0, 0, 10, 0, 5, 0, 'M', 0, 'A', 0, 'I', 0, 'N', 0});
    case 2:
    case 3: {
      Frame body = {0, status, 1, 0, 1};
      for (int i = 0; i < (kind % 8 == 2 ? 1 : 2); ++i) body.insert(body.end(), record.begin(), record.end());
      return frame_of(sequence, 0x0C, 0x28, body);
    }
    case 4:
      return frame_of(sequence, 0x1E, 0x09, {0, status, 0x12, 0x34});
    case 5:
      return frame_of(sequence, 0x1E, 0x09, {0, status, 0x12, 0x34, 0x56, 0x78, 0x9A});
    case 6:
      return frame_of(sequence, 0x1E, 0x01, {0, status});
    default:
      return frame_of(sequence, 0x1E, 0x03, {0, status});
  }
}

// Changed, cut or longer than it was, as the input says.
inline Frame damaged(Input& input, Frame frame) {
  const uint8_t how = input.byte();
  const uint8_t where = input.byte();
  switch (how % 8) {
    case 1:
      if (!frame.empty()) frame[where % frame.size()] = input.byte();
      break;
    case 2:
      frame.resize(where % (frame.size() + 1));
      break;
    case 3:
      frame.resize(frame.size() + where, how);
      break;
    case 4:
      set_length(frame, where);
      break;
    case 5:
      frame.resize(frame.size() + where, how);
      set_length(frame, frame.size() - 10);
      break;
    case 6:
      frame.insert(frame.begin(), where, how);
      break;
    case 7:
      if (frame.size() > 12) {
        frame.resize(12 + where % (frame.size() - 12));
        set_length(frame, frame.size() - 10);
      }
      break;
    default:
      break;
  }
  return frame;
}

}  // namespace fuzz
