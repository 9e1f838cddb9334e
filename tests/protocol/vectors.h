// What the tests of this folder share: random and hexadecimal bytes, and Nettle's digests and coding of the wire.
#pragma once

#include <nettle/cfb.h>
#include <nettle/nettle-meta.h>
#include <nettle/twofish.h>

#include <random>
#include <string>

#include "core/zostring.h"

inline int RandomBelow(int n) {
  static std::mt19937 engine(20090305);
  return static_cast<int>(engine() % static_cast<unsigned>(n));
}
inline std::string RandomBytes(int n) {
  std::string bytes;
  while (n-- > 0) bytes += static_cast<char>(RandomBelow(256));
  return bytes;
}

inline uint8_t* Bytes(std::string& s) {
  return reinterpret_cast<uint8_t*>(&s[0]);
}
inline const uint8_t* Bytes(const std::string& s) {
  return reinterpret_cast<const uint8_t*>(s.data());
}
inline std::string Plain(const String& s) {
  return std::string(s.Data() ? s.Data() : "", size_t(s.Length()));
}
inline String Packed(const std::string& s) {
  return String(s.data(), int(s.size()));
}

inline std::string PeerDigest(const nettle_hash& hash, const std::string& s) {
  std::string context(hash.context_size, '\0'), digest(hash.digest_size, '\0');
  hash.init(&context[0]);
  hash.update(&context[0], s.size(), Bytes(s));
  hash.digest(&context[0], digest.size(), Bytes(digest));
  return digest;
}
inline std::string PeerEncode(const std::string& data, const std::string& key) {
  twofish_ctx ctx;
  std::string iv(16, '\xFF'), out(data.size(), '\0');
  twofish192_set_key(&ctx, Bytes(PeerDigest(nettle_sha1, key) + std::string(4, '\0')));
  twofish_encrypt(&ctx, 16, Bytes(iv), Bytes(iv));
  const auto block = reinterpret_cast<nettle_cipher_func*>(twofish_encrypt);
  cfb8_encrypt(&ctx, block, 16, Bytes(iv), data.size(), Bytes(out), Bytes(data));
  return out;
}
