// The text converters, and the two roads of an element name: both give the same bytes.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_input.h"
#include "plc_driver/protocol/handles/resolve_request.h"
#include "plc_driver/text/utf16.h"

namespace {

// A tag name between exact ends, as records hold it.
void compare_roads(const std::string& name, const plc::Subscripts& subscripts) {
  plc::ReadRequest fast;
  plc::ReadRequest plain;
  const plc::NameEncoder encoder(name.c_str());
  encoder.append(subscripts, &fast);
  encoder.append_plain(subscripts, &plain);
  if (fast.length != plain.length || fast.failed != plain.failed) abort();
  constexpr uint32_t kFirst = plc::kClassOffset;
  if (memcmp(fast.bytes + kFirst, plain.bytes + kFirst, fast.length - kFirst) != 0) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  fuzz::Input input(bytes, length);
  const int32_t capacity = 1 + static_cast<int32_t>(input.below(512));
  plc::Subscripts subscripts;
  subscripts.count = input.below(4);
  for (int32_t& value : subscripts.value) value = static_cast<int32_t>(input.double_word());

  const std::string text = input.text();
  std::string padded(text.c_str());
  padded.append(6, '\0');
  std::vector<uint16_t> units(static_cast<size_t>(capacity) + 1, 0xFFFF);
  const int32_t count = utf8ToUnicode(padded.c_str(), units.data(), capacity);
  if (count < 0 || count > capacity || units[static_cast<size_t>(capacity)] != 0xFFFF) abort();

  std::vector<uint8_t> wire(text.begin(), text.end());
  std::vector<uint8_t> utf8(wire.size() / 2 * 3 + 1);
  unicodeToUtf8(wire.data(), static_cast<int32_t>(wire.size()), utf8.data());

  compare_roads(std::string(text.c_str()).substr(0, PLC_NAME_BYTES - 1), subscripts);
  return 0;
}
