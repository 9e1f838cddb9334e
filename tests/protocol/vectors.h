// What the tests of this folder share: random and hexadecimal bytes, and Nettle's digests and coding of the wire.
#pragma once

#include <nettle/cfb.h>
#include <nettle/nettle-meta.h>
#include <nettle/twofish.h>

#include <random>

#include "tests/scratch.h"

inline int RandomBelow(int n) {
  static std::mt19937 engine(20090305);
  return static_cast<int>(engine() % static_cast<unsigned>(n));
}
inline std::string RandomBytes(int n) {
  std::string bytes;
  while (n-- > 0) bytes += static_cast<char>(RandomBelow(256));
  return bytes;
}

inline uint8_t* Octets(std::string& s) {
  return reinterpret_cast<uint8_t*>(&s[0]);
}
inline const uint8_t* Octets(const std::string& s) {
  return reinterpret_cast<const uint8_t*>(s.data());
}

inline std::string PeerDigest(const nettle_hash& hash, const std::string& s) {
  std::string context(hash.context_size, '\0'), digest(hash.digest_size, '\0');
  hash.init(&context[0]);
  hash.update(&context[0], s.size(), Octets(s));
  hash.digest(&context[0], digest.size(), Octets(digest));
  return digest;
}
inline std::string PeerEncode(const std::string& data, const std::string& key) {
  twofish_ctx ctx;
  std::string iv(16, '\xFF'), out(data.size(), '\0');
  twofish192_set_key(&ctx, Octets(PeerDigest(nettle_sha1, key) + std::string(4, '\0')));
  twofish_encrypt(&ctx, 16, Octets(iv), Octets(iv));
  const auto block = reinterpret_cast<nettle_cipher_func*>(twofish_encrypt);
  cfb8_encrypt(&ctx, block, 16, Octets(iv), data.size(), Octets(out), Octets(data));
  return out;
}

// A packet as a server makes it, each part open to change.
struct TPacket {
  size_t declared = 45, keySize = 5, requestSize = 7;
  std::string signature = "\x03\x12", proof = PeerDigest(nettle_md5, "secret");
  std::string request = PeerEncode("CMD\nA=1", "a key") + "ignored";

  static std::string Number(size_t n, int digits) { return digits ? char(n) + Number(n >> 8, digits - 1) : ""; }
  std::string Bytes() const {
    return Number(declared, 4) + signature + Number(proof.size(), 2) + proof + Number(keySize, 2) +
           PeerEncode("a key", "secret") + Number(requestSize, 4) + request;
  }
};
