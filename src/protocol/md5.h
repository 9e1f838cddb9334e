// MD5 (RFC 1321).  It proves the password to a peer that knows it; nothing else rests on it.
//
// A context belongs to one caller at a time; contexts are independent of each other.
#pragma once

#include <stdint.h>

struct MD5Context {
  uint32_t state[4];
  uint64_t length;  // bytes absorbed
  unsigned char buffer[64];
};

void MD5Open(MD5Context* ctx);
void MD5Digest(MD5Context* ctx, const void* data, unsigned n);
// Writes the digest and wipes the context; open it again before the next use.
void MD5Close(MD5Context* ctx, unsigned char digest[16]);
