// MD5 digest of a file (RFC 1321), on module-level state: two digests must not run at once.

// Files of 2^31 bytes and more open on 32-bit builds too, so that they are told apart from files that cannot be opened.
#define _FILE_OFFSET_BITS 64

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "universal_api.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "blocks are read straight into words");

namespace {

constexpr uint32_t kBlockBytes = 64;
constexpr uint32_t kLengthOffset = 56;
constexpr size_t kDigestTextBytes = 33;
constexpr off_t kLongestFileBytes = INT32_MAX;

uint32_t A, B, C, D;
uint32_t x[kBlockBytes / sizeof(uint32_t)];
uint32_t a, b, c, d;
std::FILE* fp;
int32_t len;
uint32_t flen[2];
int32_t i;

// Integer part of 2^32 * |sin(step + 1)|.
constexpr uint32_t kSines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};

// Left rotations of the four rounds, in cycles of four steps; all between 4 and 23, so both shifts stay in range.
constexpr uint32_t kRotations[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

uint32_t mix_words(uint32_t round) {
  switch (round) {
    case 0:
      return (b & c) | (~b & d);
    case 1:
      return (b & d) | (c & ~d);
    case 2:
      return b ^ c ^ d;
    default:
      return c ^ (b | ~d);
  }
}

// Which word of the block a step adds.
uint32_t pick_word(uint32_t round, uint32_t step) {
  constexpr uint32_t kFactors[4] = {1, 5, 3, 7};
  constexpr uint32_t kStarts[4] = {0, 1, 5, 0};
  return (kFactors[round] * step + kStarts[round]) % 16;
}

uint32_t swap_bytes(uint32_t word) {
  return (word >> 24) | ((word >> 8) & 0xFF00u) | ((word << 8) & 0xFF0000u) | (word << 24);
}

// Removes the first and the last character of a path that begins with a double quote character.
void strip_quotes(char* path) {
  const size_t path_bytes = std::strlen(path);
  if (path[0] != '"') return;
  // A lone quote character is both the first and the last one.
  const size_t kept_bytes = path_bytes < 2 ? 0 : path_bytes - 2;
  std::memmove(path, path + 1, kept_bytes);
  path[kept_bytes] = '\0';
}

// The file's length, or -1 when it has no end to seek to or 2^31 bytes or more.
int32_t measure_file() {
  if (fseeko(fp, 0, SEEK_END) != 0) return -1;
  const off_t position = ftello(fp);
  return position > kLongestFileBytes ? -1 : static_cast<int32_t>(position);
}

// Reads the block at i * 64; false when the system refuses. A file that shrank since it was measured reads as zeros;
// what it gained does not count.
bool read_block() {
  std::memset(x, 0, sizeof x);
  [[maybe_unused]] const size_t got = std::fread(x, 1, kBlockBytes, fp);
  const uint32_t left = static_cast<uint32_t>(len) - static_cast<uint32_t>(i) * kBlockBytes;
  if (left < kBlockBytes) std::memset(reinterpret_cast<unsigned char*>(x) + left, 0, kBlockBytes - left);
  return std::ferror(fp) == 0;
}

// Digests the open file into A to D. Returns false when a read failed.
bool digest_file() {
  A = 0x67452301;
  B = 0xefcdab89;
  C = 0x98badcfe;
  D = 0x10325476;
  flen[0] = static_cast<uint32_t>(len) << 3;
  flen[1] = static_cast<uint32_t>(len) >> 29;

  i = 0;
  if (!read_block()) return false;
  while (i < len / static_cast<int32_t>(kBlockBytes)) {
    md5();
    ++i;
    if (!read_block()) return false;
  }

  const uint32_t rest = static_cast<uint32_t>(len) % kBlockBytes;
  reinterpret_cast<unsigned char*>(x)[rest] = 0x80;
  if (rest >= kLengthOffset) {
    md5();
    std::memset(x, 0, sizeof x);
  }
  x[14] = flen[0];
  x[15] = flen[1];
  md5();
  return true;
}

void close_file() {
  std::fclose(fp);
  fp = nullptr;
}

}  // namespace

void md5(void) {
  a = A;
  b = B;
  c = C;
  d = D;
  for (uint32_t step = 0; step < kBlockBytes; ++step) {
    const uint32_t round = step / 16;
    const uint32_t sum = a + mix_words(round) + x[pick_word(round, step)] + kSines[step];
    const uint32_t rotation = kRotations[round][step % 4];
    a = d;
    d = c;
    c = b;
    b += (sum << rotation) | (sum >> (32 - rotation));
  }
  A += a;
  B += b;
  C += c;
  D += d;
}

int32_t CalcFileMD5(char* path, char* out) {
  strip_quotes(path);
  if (std::strcmp(path, "exit") == 0) {
    // Deliberate: the path "exit" ends the host (D44).
    std::exit(0);
  }
  fp = std::fopen(path, "rbe");
  if (fp == nullptr) {
    std::puts("Can not open this file!");
    return 0;
  }
  len = measure_file();
  if (len == -1) {
    std::puts("Sorry! Can not calculate files which larger than 2 GB!");
    close_file();
    return 0;
  }
  std::rewind(fp);
  const bool is_read = digest_file();
  close_file();
  if (!is_read) {
    std::puts("Can not open this file!");
    return 0;
  }
  std::snprintf(out, kDigestTextBytes, "%08x%08x%08x%08x", swap_bytes(A), swap_bytes(B), swap_bytes(C), swap_bytes(D));
  return 1;
}
