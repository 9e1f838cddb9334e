#include "protocol/cipher.h"

#include <string.h>

#include "protocol/bytes.h"
#include "protocol/ciplib.h"

namespace {

// The feedback register as two numbers, byte 0 the least significant of `low`; a ciphertext byte enters behind the
// last.
struct TRegister {
  explicit TRegister(const unsigned char start[16])
      : low(LoadLittle32(start) | static_cast<uint64_t>(LoadLittle32(start + 4)) << 32),
        high(LoadLittle32(start + 8) | static_cast<uint64_t>(LoadLittle32(start + 12)) << 32) {}

  void Push(unsigned char b) {
    low = low >> 8 | high << 56;
    high = high >> 8 | static_cast<uint64_t>(b) << 56;
  }

  uint64_t low, high;
};

}  // namespace

TCipherKey::TCipherKey(const String& keyText) {
  THash_SHA hash;
  const char* digest = hash.GetHash(keyText.Length() > 0 ? keyText.Data() : "", keyText.Length());
  Twofish_prepare_key(reinterpret_cast<const unsigned char*>(digest), hash.GetHashSize(), &schedule);
  memset(start, 0xFF, sizeof start);
  Twofish_encrypt(&schedule, start, start);
}

TCipherKey::~TCipherKey() {
  explicit_bzero(&schedule, sizeof schedule);
  explicit_bzero(start, sizeof start);
}

void TCipherKey::Encrypt(const char* in, char* out, int n) const {
  TRegister feedback(start);
  for (int i = 0; i < n; i++) {
    const unsigned char keystream = Twofish_encrypt_first(&schedule, feedback.low, feedback.high);
    const unsigned char coded = static_cast<unsigned char>(in[i]) ^ keystream;
    out[i] = static_cast<char>(coded);
    feedback.Push(coded);
  }
}

// A register holds what was received, not what was made of it: so two bytes are worked out side by side.
void TCipherKey::Decrypt(const char* in, char* out, int n) const {
  TRegister feedback(start);
  int i = 0;
  for (; i + 2 <= n; i += 2) {
    const unsigned char coded[2] = {static_cast<unsigned char>(in[i]), static_cast<unsigned char>(in[i + 1])};
    TRegister next = feedback;
    next.Push(coded[0]);
    const uint64_t low[2] = {feedback.low, next.low}, high[2] = {feedback.high, next.high};
    const TTwoBytes keystream = Twofish_encrypt_first_of_two(&schedule, low, high);
    out[i] = static_cast<char>(coded[0] ^ keystream.first);
    out[i + 1] = static_cast<char>(coded[1] ^ keystream.second);
    next.Push(coded[1]);
    feedback = next;
  }
  if (i < n) out[i] = static_cast<char>(in[i] ^ Twofish_encrypt_first(&schedule, feedback.low, feedback.high));
}
