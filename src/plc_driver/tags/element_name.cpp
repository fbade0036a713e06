// Every subscript formula, side by side.
#include "plc_driver/tags/element_name.h"

namespace plc {
namespace {

uint32_t to_unsigned(int32_t value) { return static_cast<uint32_t>(value); }
int32_t to_signed(uint32_t value) { return static_cast<int32_t>(value); }

// Number of elements of a range, modulo 2^32.
uint32_t extent(int32_t low, int32_t high) { return to_unsigned(high) + 1 - to_unsigned(low); }
uint32_t extent1(const TagEntry& entry) { return extent(entry.dim1_low, entry.dim1_high); }
uint32_t extent2(const TagEntry& entry) { return extent(entry.dim2_low, entry.dim2_high); }

void set1(uint32_t a, Subscripts* out) {
  out->count = 1;
  out->value[0] = to_signed(a);
}

void set2(uint32_t a, uint32_t b, Subscripts* out) {
  set1(a, out);
  out->count = 2;
  out->value[1] = to_signed(b);
}

void set3(uint32_t a, uint32_t b, uint32_t c, Subscripts* out) {
  set2(a, b, out);
  out->count = 3;
  out->value[2] = to_signed(c);
}

// Two dimensions of reads and of bit writes.
bool form_crosswise2(const TagEntry& entry, uint32_t dim1_high, uint32_t element, Subscripts* out) {
  const uint32_t e1 = extent(entry.dim1_low, to_signed(dim1_high));
  if (e1 == 0) return false;
  set2(to_unsigned(entry.dim1_low) + element / e1, to_unsigned(entry.dim2_low) + element % e1, out);
  return true;
}

// A quotient and its remainder; signed, truncating toward zero.
struct Division {
  uint32_t quotient;
  uint32_t remainder;
};

bool is_negative(uint32_t number) { return to_signed(number) < 0; }

uint32_t negated_if(bool negated, uint32_t number) { return negated ? 0U - number : number; }

// Of the magnitudes: INT32_MIN / -1 has a value too, and panels without a divider need one function for all divisions.
Division divide_signed(uint32_t dividend, uint32_t divisor) {
  const uint32_t dividend_magnitude = negated_if(is_negative(dividend), dividend);
  const uint32_t divisor_magnitude = negated_if(is_negative(divisor), divisor);
  return {negated_if(is_negative(dividend ^ divisor), dividend_magnitude / divisor_magnitude),
          negated_if(is_negative(dividend), dividend_magnitude % divisor_magnitude)};
}

// Three dimensions of writes: as reads, but signed.
bool form_write3(const TagEntry& entry, uint32_t element, Subscripts* out) {
  const uint32_t e1 = extent1(entry);
  const uint32_t e2 = extent2(entry);
  if (e1 == 0 || e2 == 0) return false;
  const Division inner = divide_signed(element, e1);
  const Division outer = divide_signed(inner.quotient, e2);
  set3(to_unsigned(entry.dim1_low) + outer.quotient, to_unsigned(entry.dim2_low) + outer.remainder,
       to_unsigned(entry.dim3_low) + inner.remainder, out);
  return true;
}

}  // namespace

bool form_read_subscripts(const TagEntry& entry, uint32_t element, Subscripts* out) {
  switch (entry.shape) {
    case PLC_ARRAY1:
      set1(element, out);
      return true;
    case PLC_ARRAY2:
      return form_crosswise2(entry, to_unsigned(entry.dim1_high), element, out);
    case PLC_ARRAY3: {
      const uint32_t e1 = extent1(entry);
      const uint32_t e2 = extent2(entry);
      if (e1 == 0 || e2 == 0) return false;
      const uint32_t quotient = element / e1;
      set3(to_unsigned(entry.dim1_low) + quotient / e2, to_unsigned(entry.dim2_low) + quotient % e2,
           to_unsigned(entry.dim3_low) + element % e1, out);
      return true;
    }
    default:
      out->count = 0;
      return true;
  }
}

bool form_word_write_subscripts(const TagEntry& entry, uint32_t shape, uint32_t dim1_high, uint32_t element,
                                Subscripts* out) {
  switch (shape) {
    case PLC_ARRAY1:
      set1(element, out);
      return true;
    case PLC_ARRAY2: {
      const uint32_t width = dim1_high + 1;
      if (width == 0) return false;
      set2(element / width, element % width, out);
      return true;
    }
    case PLC_ARRAY3:
      return form_write3(entry, element, out);
    default:
      out->count = 0;
      return true;
  }
}

bool form_bit_write_subscripts(const TagEntry& entry, uint32_t shape, uint32_t dim1_high, uint32_t element,
                               Subscripts* out) {
  switch (shape) {
    case PLC_ARRAY1:
      set1(element, out);
      return true;
    case PLC_ARRAY2:
      return form_crosswise2(entry, dim1_high, element, out);
    case PLC_ARRAY3:
      return form_write3(entry, element, out);
    default:
      out->count = 0;
      return true;
  }
}

Subscripts form_single_subscript(uint32_t element) {
  Subscripts subscripts;
  set1(element, &subscripts);
  return subscripts;
}

bool form_item_subscripts(const TagEntry& entry, uint32_t element, Subscripts* out) {
  const uint32_t high1 = to_unsigned(entry.dim1_high);
  const uint32_t high2 = to_unsigned(entry.dim2_high);
  if (entry.shape != PLC_ARRAY2 && entry.shape != PLC_ARRAY3) {
    set1(element, out);  // the bare offset: the lower bound is not added
    return entry.shape != PLC_ARRAY1 || element <= high1;
  }
  const uint32_t e1 = extent1(entry);
  if (e1 == 0) return false;
  const uint32_t z = to_unsigned(entry.dim1_low) + element % e1;
  const uint32_t quotient = element / e1;
  if (entry.shape == PLC_ARRAY2) {
    const uint32_t y = to_unsigned(entry.dim2_low) + quotient;
    set2(y, z, out);
    return z <= high1 && y <= high2;
  }
  const uint32_t e2 = extent2(entry);
  if (e2 == 0) return false;
  const uint32_t y = to_unsigned(entry.dim2_low) + quotient % e2;
  const uint32_t x = to_unsigned(entry.dim3_low) + quotient / e2;
  set3(x, y, z, out);
  return z <= high1 && y <= high2 && x <= to_unsigned(entry.dim3_high);
}

namespace {

// Puts a character in front of at.
template <uint32_t kCharBytes>
void put_before(uint8_t** at, char c) {
  *--*at = static_cast<uint8_t>(c);
  if (kCharBytes == 2) *--*at = 0;
}

}  // namespace

template <uint32_t kCharBytes>
SubscriptChars<kCharBytes>::SubscriptChars(const Subscripts& subscripts, bool marked) {
  if (subscripts.count == 0) return;
  uint8_t* at = bytes + sizeof bytes;
  put_before<kCharBytes>(&at, ']');
  for (uint32_t i = subscripts.count; i-- > 0;) {
    const bool negative = subscripts.value[i] < 0;
    uint32_t magnitude = to_unsigned(subscripts.value[i]);
    if (negative) magnitude = 0U - magnitude;
    do {
      put_before<kCharBytes>(&at, static_cast<char>('0' + magnitude % 10));
      magnitude /= 10;
    } while (magnitude != 0);
    if (negative) put_before<kCharBytes>(&at, '-');
    if (marked) put_before<kCharBytes>(&at, '#');
    put_before<kCharBytes>(&at, i == 0 ? '[' : ',');
  }
  first = static_cast<uint32_t>(at - bytes);
}

template struct SubscriptChars<1>;
template struct SubscriptChars<2>;

}  // namespace plc
