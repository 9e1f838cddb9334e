#include "protocol/ciplib.h"

#include <string.h>

#include <algorithm>

#include "core/assertion.h"
#include "protocol/bytes.h"
#include "protocol/crc32.h"

void TCRC32::UpdateCRC(unsigned char b) {
  crc = FastestCrcStep()(crc, &b, 1);
}

void TCRC32::UpdateCRC(const char* data, int n) {
  if (data == nullptr) return;
  const size_t size = n == -1 ? strlen(data) : static_cast<size_t>(std::max(n, 0));
  crc = FastestCrcStep()(crc, reinterpret_cast<const unsigned char*>(data), size);
}

unsigned int TCRC32::GetBlockCRC(const char* data, int n) {
  InitCRC();
  UpdateCRC(data, n);
  return GetCRC();
}

unsigned int THash_SHA::REVERSE32(unsigned int x) {
  return SwapBytes(x);
}

void THash_SHA::Init() {
  static constexpr uint32_t kStart[5] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
  Burn();
  memcpy(words, kStart, sizeof words);
  fInitialized = true;
}

void THash_SHA::Burn() {
  bits = 0;
  index = 0;
  explicit_bzero(words, sizeof words);
  explicit_bzero(buffer, sizeof buffer);
}

void THash_SHA::Update(const char* data, long n) {
  if (!fInitialized) Init();
  while (n > 0) {
    const int part = static_cast<int>(std::min<long>(n, kBlockSize - index));
    memcpy(buffer + index, data, static_cast<size_t>(part));
    bits += 8 * static_cast<uint64_t>(part);
    index += part;
    data += part;
    n -= part;
    if (index == kBlockSize) Compress();
  }
}

void THash_SHA::Final() {
  if (!fInitialized) AssertionFailure("fInitialized", "ciplib", 213, "void THash_SHA::Final()");

  buffer[index++] = 0x80;  // behind it the buffer is zero
  if (index > kBlockSize - 8) Compress();
  StoreBig32(static_cast<uint32_t>(bits >> 32), buffer + kBlockSize - 8);
  StoreBig32(static_cast<uint32_t>(bits), buffer + kBlockSize - 4);
  Compress();
  for (uint32_t& word : words) StoreBig32(word, &word);
  fInitialized = false;
}

const char* THash_SHA::GetHash(const char* data, long n) {
  if (data != nullptr) {
    Init();
    Update(data, n);
    Final();
  }
  if (fInitialized) {
    AssertionFailure("!fInitialized", "ciplib", 246, "const char* THash_SHA::GetHash(const char*, long int)");
  }
  return reinterpret_cast<const char*>(words);
}

namespace {

// Rounds i to i + 4.  The schedule is carried on in the sixteen words that it is made of: they stay close by, and a
// compiler can't widen steps of which each needs the third before it.
template <class TMix>
inline void FiveRounds(uint32_t v[5], uint32_t w[16], int i, uint32_t constant, TMix mix) {
  const auto round = [&](uint32_t a, uint32_t& b, uint32_t c, uint32_t d, uint32_t& e, int t) {
    uint32_t& word = w[t & 15];
    e += mix(b, c, d) + word + constant + RotateLeft(a, 5);
    b = RotateLeft(b, 30);
    word = RotateLeft(w[(t + 13) & 15] ^ w[(t + 8) & 15] ^ w[(t + 2) & 15] ^ word, 1);
  };
  round(v[0], v[1], v[2], v[3], v[4], i);
  round(v[4], v[0], v[1], v[2], v[3], i + 1);
  round(v[3], v[4], v[0], v[1], v[2], i + 2);
  round(v[2], v[3], v[4], v[0], v[1], i + 3);
  round(v[1], v[2], v[3], v[4], v[0], i + 4);
}

}  // namespace

void THash_SHA::Compress() {
  uint32_t w[16], v[5];
  for (int i = 0; i < 16; i++) w[i] = LoadBig32(buffer + 4 * i);
  memcpy(v, words, sizeof v);

  const auto choose = [](uint32_t b, uint32_t c, uint32_t d) { return d ^ (b & (c ^ d)); };
  const auto parity = [](uint32_t b, uint32_t c, uint32_t d) { return b ^ c ^ d; };
  const auto majority = [](uint32_t b, uint32_t c, uint32_t d) { return (b & c) | (d & (b | c)); };
  for (int i = 0; i < 20; i += 5) FiveRounds(v, w, i, 0x5A827999, choose);
  for (int i = 20; i < 40; i += 5) FiveRounds(v, w, i, 0x6ED9EBA1, parity);
  for (int i = 40; i < 60; i += 5) FiveRounds(v, w, i, 0x8F1BBCDC, majority);
  for (int i = 60; i < 80; i += 5) FiveRounds(v, w, i, 0xCA62C1D6, parity);
  for (int i = 0; i < 5; i++) words[i] += v[i];

  index = 0;
  explicit_bzero(w, sizeof w);
  explicit_bzero(buffer, sizeof buffer);
}
