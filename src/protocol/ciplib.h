// The file checksum and the digest that turns a key text into a cipher key.
//
// An object belongs to one caller at a time; objects are independent of each other.
#pragma once

#include <stdint.h>

// CRC-32 with the reflected polynomial 0xEDB88320, as in ISO 3309 and ITU-T V.42, but for its last step.
class TCRC32 {
 public:
  void InitCRC() { crc = 0xFFFFFFFF; }
  // No final inversion: the servers keep this register as it stands, the complement of the usual CRC-32.
  unsigned int GetCRC() const { return crc; }
  void UpdateCRC(unsigned char b);
  void UpdateCRC(const char* data, int n);  // n = -1: strlen; null does nothing
  unsigned int GetBlockCRC(const char* data, int n);

 private:
  uint32_t crc = 0xFFFFFFFF;
};

// SHA-1 (FIPS 180-1).  Wiped when it goes away.
class THash_SHA {
 public:
  THash_SHA() { Init(); }
  ~THash_SHA() { Burn(); }

  void Init();
  // Wipes the message and the digest; Init() comes next.
  void Burn();
  // Absorbs n bytes; starts a new message after Final().
  void Update(const char* data, long n);
  // Ends the message.  REQUIRES: one has begun; the process stops otherwise.
  void Final();
  // The 20 bytes of the digest of `data`, in the object; null gives the digest of the last Final() again, and
  // REQUIRES that no message has begun since.
  const char* GetHash(const char* data, long n);
  int GetHashSize() const { return kDigestSize; }
  static unsigned int REVERSE32(unsigned int x);  // the bytes in reverse

 private:
  static constexpr int kDigestSize = 20;
  static constexpr int kBlockSize = 64;

  void Compress();

  bool fInitialized = false;
  uint64_t bits;      // length of the message
  int index;          // bytes in the buffer
  uint32_t words[5];  // the chaining words; after Final() the digest
  unsigned char buffer[kBlockSize];
};
