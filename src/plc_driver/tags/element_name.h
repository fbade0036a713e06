// Every subscript formula, side by side: they differ on purpose.
#pragma once

#include <cstdint>

#include "plc_driver.h"

namespace plc {

// The subscripts of one element, none to three, in the order in which they are written.
struct Subscripts {
  uint32_t count = 0;
  int32_t value[3] = {};
};

// Each formula returns false, and forms nothing, when an extent that it divides by is zero.

// Reads, single and batch: unsigned; the divisor is the extent of dim1, the lower bounds are paired crosswise (D12).
bool form_read_subscripts(const TagEntry& entry, uint32_t element, Subscripts* out);

// Word writes: two dimensions without any lower bound (D13), three with signed division. shape says which; dim1_high is
// that of two dimensions.
bool form_word_write_subscripts(const TagEntry& entry, uint32_t shape, uint32_t dim1_high, uint32_t element,
                                Subscripts* out);

// Writes of bit arrays: two dimensions as reads, so that a bit is written where the single read finds it (D49); three
// as word writes.
bool form_bit_write_subscripts(const TagEntry& entry, uint32_t shape, uint32_t dim1_high, uint32_t element,
                               Subscripts* out);

// One subscript for a position in a string or a one-dimensional array.
Subscripts form_single_subscript(uint32_t element);

// Items of a batch: the quotient goes to the first subscript and the remainder to the last, the other way round than in
// reads (D14). False also when a subscript is above its declared bound.
bool form_item_subscripts(const TagEntry& entry, uint32_t element, Subscripts* out);

// [#-2147483648,#-2147483648,#-2147483648] is the longest.
constexpr uint32_t kSubscriptTextBytes = 40;

// The text of subscripts, "[#1,#2]", or "[1,2]" without a mark, in characters of one byte or of two, big-endian. It is
// formed from its end.
template <uint32_t kCharBytes>
struct SubscriptChars {
  uint8_t bytes[kSubscriptTextBytes * kCharBytes];
  uint32_t first = sizeof bytes;

  SubscriptChars(const Subscripts& subscripts, bool marked);

  const uint8_t* data() const { return bytes + first; }
  uint32_t length() const { return (static_cast<uint32_t>(sizeof bytes) - first) / kCharBytes; }
};

using SubscriptText = SubscriptChars<1>;
using SubscriptUnits = SubscriptChars<2>;

}  // namespace plc
