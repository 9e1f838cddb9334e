// Packet bodies under a key: Twofish in 8-bit cipher feedback (CFB-8, NIST SP 800-38A section 6.3, s = 8).
//
// The Twofish key is the SHA-1 digest of the key text, the starting register one encryption of sixteen 0xFF bytes;
// so the register depends on the key alone.  A prepared key is read-only and may be used by any number of threads.
#pragma once

#include <memory>

#include "core/zostring.h"
#include "protocol/twofish.h"

// A key text made ready for use; preparing costs far more than a short packet.  Wiped when it goes away.
class TCipherKey {
 public:
  explicit TCipherKey(const String& keyText);
  ~TCipherKey();
  TCipherKey(const TCipherKey&) = delete;
  TCipherKey& operator=(const TCipherKey&) = delete;

  // Same length as the input; `out` may be `in`, or begin before it.  Decrypting under a wrong key gives wrong
  // bytes, never an error.
  void Encrypt(const char* in, char* out, int n) const;
  void Decrypt(const char* in, char* out, int n) const;

 private:
  Twofish_key schedule;
  unsigned char start[16];
};
using TCipherKeyPtr = std::shared_ptr<const TCipherKey>;
