// How fast keys are prepared and bodies encrypted, beside other libraries where they were found at build time; and
// the checksum of a file by another library.
//
//   tav_crypto            lines "WORK WHO FIGURE": microseconds for a key, MB/s for the rest, all in turn, the best
//   tav_crypto crc FILE   the CRC of a file read in blocks of 256 KiB, microseconds

#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#ifdef TAV_PEERS
#include <fcntl.h>
#include <gcrypt.h>
#include <isa-l.h>
#include <tomcrypt.h>
#include <unistd.h>
#endif

#include "protocol/cipher.h"

namespace {

constexpr int kBody = 20000;

struct TWork {
  const char* name;
  const char* who;
  bool isKey;
  std::function<void()> once;
  double bestUs = 1e12;
};

double Us(const std::function<void()>& work, int times) {
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < times; ++i) work();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count() / times;
}

#ifdef TAV_PEERS
void AddPeers(std::vector<TWork>& works, char* body) {
  static symmetric_key tomKey;
  static unsigned char key[32] = {1, 2, 3};
  static gcry_cipher_hd_t gcry;
  twofish_setup(key, 24, 0, &tomKey);
  gcry_check_version(nullptr);
  gcry_cipher_open(&gcry, GCRY_CIPHER_TWOFISH, GCRY_CIPHER_MODE_CFB8, 0);
  gcry_cipher_setkey(gcry, key, 32);
  // CFB-8 over the block cipher, as LibTomCrypt's own CFB mode takes whole blocks only.
  const auto tom = [body] {
    unsigned char feedback[16] = {}, out[16];
    for (int i = 0; i < kBody; ++i) {
      twofish_ecb_encrypt(feedback, out, &tomKey);
      memmove(feedback, feedback + 1, 15);
      feedback[15] = static_cast<unsigned char>(body[i]);
      body[i] = static_cast<char>(body[i] ^ out[0]);
    }
  };
  works.push_back({"key", "libgcrypt", true, [] { gcry_cipher_setkey(gcry, key, 32); }});
  works.push_back({"key", "LibTomCrypt", true, [] { twofish_setup(key, 24, 0, &tomKey); }});
  works.push_back({"encrypt", "LibTomCrypt", false, tom});
  works.push_back({"decrypt", "LibTomCrypt", false, tom});
  works.push_back({"encrypt", "libgcrypt", false, [body] { gcry_cipher_encrypt(gcry, body, kBody, nullptr, 0); }});
  works.push_back({"decrypt", "libgcrypt", false, [body] { gcry_cipher_decrypt(gcry, body, kBody, nullptr, 0); }});
}

int ChecksumFile(const char* path) {
  std::vector<unsigned char> block(256 * 1024);
  unsigned crc = 0;
  const double us = Us(
      [&] {
        const int fd = open(path, O_RDONLY | O_CLOEXEC);
        for (ssize_t n; (n = read(fd, block.data(), block.size())) > 0;) {
          crc = crc32_gzip_refl(crc, block.data(), static_cast<uint64_t>(n));
        }
        close(fd);
      },
      1);
  printf("%.1f %u\n", us, crc);
  return 0;
}
#else
void AddPeers(std::vector<TWork>&, char*) {}
int ChecksumFile(const char*) {
  fprintf(stderr, "built without the other libraries\n");
  return 1;
}
#endif

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && strcmp(argv[1], "crc") == 0) return ChecksumFile(argv[2]);
  Twofish_initialise();
  const String keyText("0123456789abcdef");
  const TCipherKey key(keyText);
  std::string text(kBody, 'x');
  char* const body = &text[0];
  std::vector<TWork> works = {
      {"key", "tav", true, [&] { const TCipherKey prepared(keyText); }},
      {"encrypt", "tav", false, [&] { key.Encrypt(body, body, kBody); }},
      {"decrypt", "tav", false, [&] { key.Decrypt(body, body, kBody); }},
  };
  AddPeers(works, body);
  for (int round = 0; round < 200; ++round) {
    for (TWork& work : works) work.bestUs = std::min(work.bestUs, Us(work.once, work.isKey ? 50 : 1));
  }
  for (const TWork& work : works) {
    printf("%s %s %.3f\n", work.name, work.who, work.isKey ? work.bestUs : kBody / work.bestUs);
  }
  return 0;
}
