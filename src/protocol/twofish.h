// The Twofish block cipher (B. Schneier et al., "Twofish: A 128-Bit Block Cipher", 1998), with full keying: all
// four key-dependent S-boxes are worked out, so that a block costs as little as it can.
//
// Twofish_initialise() runs before the first thread; from then on any number of threads may prepare and use keys. A
// fault here is never the peer's: it ends the process with exit status 3.
#pragma once

#include <stdint.h>

struct Twofish_key {
  uint32_t s[4][256];  // keyed S-boxes, the MDS matrix multiplied in
  uint32_t k[40];      // subkeys: 8 for the whitening, 2 a round
};

// Proves the word helpers, builds the tables, then proves the cipher by the published vectors
// (twofish_selftest.cpp).  Takes about half a millisecond; a second call does nothing.
void Twofish_initialise();
// The tables alone, unproved: Twofish_initialise()'s part of the work that is done here.
void Twofish_build_tables();

// `length` is 0 to 32 bytes; the key is padded with zeros to 16, 24 or 32.  The caller wipes `prepared` in the end.
void Twofish_prepare_key(const unsigned char* key, int length, Twofish_key* prepared);

// One block; `out` may be `in`.
void Twofish_encrypt(const Twofish_key* key, const unsigned char in[16], unsigned char out[16]);
void Twofish_decrypt(const Twofish_key* key, const unsigned char in[16], unsigned char out[16]);

// The first byte of the encrypted block alone, which is all that 8-bit feedback takes: about a tenth cheaper. `low`
// holds block bytes 0 to 7, `high` 8 to 15, the first the least significant.
unsigned char Twofish_encrypt_first(const Twofish_key* key, uint64_t low, uint64_t high);
// The same of two blocks side by side: the processor works on one while it waits for the other's tables.
struct TTwoBytes {
  unsigned char first, second;
};
TTwoBytes Twofish_encrypt_first_of_two(const Twofish_key* key, const uint64_t low[2], const uint64_t high[2]);

// Writes the reason to standard error and ends the process with exit status 3.
[[noreturn]] void Twofish_fatal(const char* message);
