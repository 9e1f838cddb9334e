#include "protocol/md5.h"

#include <string.h>

#include <algorithm>

#include "protocol/bytes.h"

namespace {

// floor(2^32 * |sin(i + 1)|), the table T of the RFC.
constexpr uint32_t kSines[64] = {
    0xD76AA478, 0xE8C7B756, 0x242070DB, 0xC1BDCEEE, 0xF57C0FAF, 0x4787C62A, 0xA8304613, 0xFD469501,
    0x698098D8, 0x8B44F7AF, 0xFFFF5BB1, 0x895CD7BE, 0x6B901122, 0xFD987193, 0xA679438E, 0x49B40821,
    0xF61E2562, 0xC040B340, 0x265E5A51, 0xE9B6C7AA, 0xD62F105D, 0x02441453, 0xD8A1E681, 0xE7D3FBC8,
    0x21E1CDE6, 0xC33707D6, 0xF4D50D87, 0x455A14ED, 0xA9E3E905, 0xFCEFA3F8, 0x676F02D9, 0x8D2A4C8A,
    0xFFFA3942, 0x8771F681, 0x6D9D6122, 0xFDE5380C, 0xA4BEEA44, 0x4BDECFA9, 0xF6BB4B60, 0xBEBFBC70,
    0x289B7EC6, 0xEAA127FA, 0xD4EF3085, 0x04881D05, 0xD9D4D039, 0xE6DB99E5, 0x1FA27CF8, 0xC4AC5665,
    0xF4292244, 0x432AFF97, 0xAB9423A7, 0xFC93A039, 0x655B59C3, 0x8F0CCC92, 0xFFEFF47D, 0x85845DD1,
    0x6FA87E4F, 0xFE2CE6E0, 0xA3014314, 0x4E0811A1, 0xF7537E82, 0xBD3AF235, 0x2AD7D2BB, 0xEB86D391};
constexpr int kRotations[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

uint32_t Mix(int round, uint32_t b, uint32_t c, uint32_t d) {
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

void Compress(uint32_t state[4], const unsigned char* block) {
  constexpr int kStep[4] = {1, 5, 3, 7}, kFirst[4] = {0, 1, 5, 0};  // the order in which a round takes the words
  uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
  for (int i = 0; i < 64; i++) {
    const int round = i / 16;
    const int word = (kFirst[round] + kStep[round] * i) % 16;
    const uint32_t sum = a + Mix(round, b, c, d) + LoadLittle32(block + 4 * word) + kSines[i];
    a = d;
    d = c;
    c = b;
    b += RotateLeft(sum, kRotations[round][i % 4]);
  }
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
}

}  // namespace

void MD5Open(MD5Context* ctx) {
  *ctx = {{0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476}, 0, {}};
}

void MD5Digest(MD5Context* ctx, const void* data, unsigned n) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  while (n > 0) {
    const unsigned used = static_cast<unsigned>(ctx->length % 64);
    const unsigned part = std::min(n, 64 - used);
    memcpy(ctx->buffer + used, bytes, part);
    ctx->length += part;
    bytes += part;
    n -= part;
    if (used + part == 64) Compress(ctx->state, ctx->buffer);
  }
}

void MD5Close(MD5Context* ctx, unsigned char digest[16]) {
  static constexpr unsigned char kPadding[64] = {0x80};
  const uint64_t bits = ctx->length * 8;
  const unsigned used = static_cast<unsigned>(ctx->length % 64);
  unsigned char size[8];
  StoreLittle32(static_cast<uint32_t>(bits), size);
  StoreLittle32(static_cast<uint32_t>(bits >> 32), size + 4);

  MD5Digest(ctx, kPadding, used < 56 ? 56 - used : 120 - used);
  MD5Digest(ctx, size, sizeof size);
  for (int i = 0; i < 4; i++) StoreLittle32(ctx->state[i], digest + 4 * i);
  explicit_bzero(ctx, sizeof *ctx);
}
