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

void THash_SHA::Compress() {
  uint32_t w[80];
  for (int i = 0; i < 16; i++) w[i] = LoadBig32(buffer + 4 * i);
  for (int i = 16; i < 80; i++) w[i] = RotateLeft(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);

  uint32_t a = words[0], b = words[1], c = words[2], d = words[3], e = words[4];
  for (int i = 0; i < 80; i++) {
    uint32_t mixed;
    if (i < 20)
      mixed = ((b & c) | (~b & d)) + 0x5A827999;
    else if (i < 40)
      mixed = (b ^ c ^ d) + 0x6ED9EBA1;
    else if (i < 60)
      mixed = ((b & c) | (b & d) | (c & d)) + 0x8F1BBCDC;
    else
      mixed = (b ^ c ^ d) + 0xCA62C1D6;
    const uint32_t next = RotateLeft(a, 5) + mixed + e + w[i];
    e = d;
    d = c;
    c = RotateLeft(b, 30);
    b = a;
    a = next;
  }
  words[0] += a;
  words[1] += b;
  words[2] += c;
  words[3] += d;
  words[4] += e;

  index = 0;
  explicit_bzero(w, sizeof w);
  explicit_bzero(buffer, sizeof buffer);
}
