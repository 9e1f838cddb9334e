#include "agent/selftest.h"

#include <stdio.h>
#include <string.h>

#include "protocol/ciplib.h"
#include "protocol/tav_const.h"
#include "protocol/twofish.h"

namespace {

constexpr char kPassPhrase[] = "lamp of cobalt";
constexpr char kPlain[16] = "123456789012345";

bool Report(bool passed) {
  printf("%s\n", passed ? "Ok" : "Error");
  return passed;
}

}  // namespace

bool TestBasicEncryption() {
  printf("Basic encyption checking .. ");
  Twofish_initialise();
  THash_SHA hash;
  const char* digest = hash.GetHash(kPassPhrase, sizeof kPassPhrase - 1);
  Twofish_key key;
  Twofish_prepare_key(reinterpret_cast<const unsigned char*>(digest), hash.GetHashSize(), &key);

  unsigned char plain[16], block[16];
  memcpy(plain, kPlain, sizeof plain);
  Twofish_encrypt(&key, plain, block);
  Twofish_decrypt(&key, block, block);
  return Report(memcmp(block, plain, sizeof plain) == 0);
}

bool TestPacketEncryption() {
  printf("TAV encyption checking .. ");
  const String plain(kPlain), key(kPassPhrase);
  return Report(DecodeData(EncodeData(plain, key, 0), key) == plain);
}
