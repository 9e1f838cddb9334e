// Words from and to bytes, in a stated byte order whatever the platform's, and the 32-bit rotations.
#pragma once

#include <stdint.h>
#include <string.h>

constexpr uint32_t RotateLeft(uint32_t x, int n) {
  return (x << n) | (x >> (32 - n));
}  // n: 1 to 31
constexpr uint32_t RotateRight(uint32_t x, int n) {
  return (x >> n) | (x << (32 - n));
}
constexpr uint32_t SwapBytes(uint32_t x) {
  return __builtin_bswap32(x);
}
// Byte n of a word, 0 the least significant.
constexpr unsigned SelectByte(uint32_t x, int n) {
  return (x >> (8 * n)) & 0xFF;
}

inline uint32_t LoadLittle32(const void* p) {
  uint32_t x;
  memcpy(&x, p, sizeof x);
  return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? x : SwapBytes(x);
}
inline uint32_t LoadBig32(const void* p) {
  return SwapBytes(LoadLittle32(p));
}

inline void StoreLittle32(uint32_t x, void* p) {
  x = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? x : SwapBytes(x);
  memcpy(p, &x, sizeof x);
}
inline void StoreBig32(uint32_t x, void* p) {
  StoreLittle32(SwapBytes(x), p);
}
