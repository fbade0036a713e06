// The lines of a tag file's text that count.
#include "plc_driver/tags/line_reader.h"

namespace plc {

bool LineReader::next(TagLine* line) {
  constexpr ptrdiff_t kPieceLimitBytes = 255;  // what one reading of a line takes
  while (at < end) {
    const char* limit = end - at > kPieceLimitBytes ? at + kPieceLimitBytes : end;
    if (read_piece(limit, line)) return true;
  }
  return false;
}

// One look at each byte: most are above all that matter. A longer line loses the pieces that do not end it; what is
// left is a line of its own (D6).
bool LineReader::read_piece(const char* limit, TagLine* line) {
  line->text = at;
  line->comma_count = 0;
  bool has_zero = false;
  while (at < limit) {
    const auto c = static_cast<unsigned char>(*at++);
    if (c > ',') continue;
    if (c == ',') {
      line->commas[line->comma_count++] = static_cast<uint32_t>(at - 1 - line->text);
    } else if (c == '\n') {
      ++number;
      line->length = static_cast<uint32_t>(at - line->text);
      return !has_zero;
    } else if (c == '\0') {
      has_zero = true;
    }
  }
  return false;
}

}  // namespace plc
