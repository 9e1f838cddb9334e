#include "protocol/twofish.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "core/exitstatus.h"
#include "protocol/bytes.h"

namespace {

// The 4-bit permutations that q0 and q1 are made of (section 4.3.5 of the paper).
constexpr unsigned char kNibbles[2][4][16] = {
    {{0x8, 0x1, 0x7, 0xD, 0x6, 0xF, 0x3, 0x2, 0x0, 0xB, 0x5, 0x9, 0xE, 0xC, 0xA, 0x4},
     {0xE, 0xC, 0xB, 0x8, 0x1, 0x2, 0x3, 0x5, 0xF, 0x4, 0xA, 0x6, 0x7, 0x0, 0x9, 0xD},
     {0xB, 0xA, 0x5, 0xE, 0x6, 0xD, 0x9, 0x0, 0xC, 0x8, 0xF, 0x3, 0x2, 0x4, 0x7, 0x1},
     {0xD, 0x7, 0xF, 0x4, 0x1, 0x2, 0x6, 0xE, 0x9, 0xB, 0x3, 0x0, 0x8, 0x5, 0xC, 0xA}},
    {{0x2, 0x8, 0xB, 0xD, 0xF, 0x7, 0x6, 0xE, 0x3, 0x1, 0x9, 0x4, 0x0, 0xA, 0xC, 0x5},
     {0x1, 0xE, 0x2, 0xB, 0x4, 0xC, 0x3, 0x7, 0x6, 0xD, 0xA, 0x5, 0xF, 0x9, 0x0, 0x8},
     {0x4, 0xC, 0x7, 0x5, 0x1, 0x6, 0x9, 0xA, 0x0, 0xE, 0xD, 0x8, 0x2, 0xB, 0x3, 0xF},
     {0xB, 0x9, 0x5, 0x1, 0xC, 0x3, 0xD, 0xE, 0x6, 0x4, 0x7, 0xF, 0x2, 0x0, 0x8, 0xA}}};

constexpr unsigned char kMds[4][4] = {
    {0x01, 0xEF, 0x5B, 0x5B}, {0x5B, 0xEF, 0xEF, 0x01}, {0xEF, 0x5B, 0x01, 0xEF}, {0xEF, 0x01, 0xEF, 0x5B}};
constexpr unsigned kMdsPolynomial = 0x169;
constexpr unsigned kRsPolynomial = 0x14D;

// Which of q0 and q1 a byte of each column passes before key word j of the function h, and which at the end.
constexpr int kStage[4][4] = {{0, 0, 1, 1}, {0, 1, 0, 1}, {1, 1, 0, 0}, {1, 0, 0, 1}};
constexpr int kLastStage[4] = {1, 0, 1, 0};

bool initialised = false;
unsigned char q[2][256];
uint32_t mds[4][256];  // by column: the last q, then the MDS matrix

// The list L of the paper; word j is read at bytes + j * stride.
struct TKeyWords {
  const unsigned char* bytes;
  int stride;
};

unsigned Permute(const unsigned char t[4][16], unsigned x) {
  unsigned a = x >> 4, b = x & 15;
  for (int i = 0; i < 4; i += 2) {
    const unsigned mixed = a ^ b;
    b = a ^ (b >> 1 | (b & 1) << 3) ^ (a << 3 & 15);
    a = t[i][mixed];
    b = t[i + 1][b];
  }
  return b << 4 | a;
}

unsigned Multiply(unsigned a, unsigned b, unsigned polynomial) {
  unsigned product = 0;
  for (; b != 0; b >>= 1) {
    if ((b & 1) != 0) product ^= a;
    a <<= 1;
    if (a > 0xFF) a ^= polynomial;
  }
  return product;
}

void BuildTables() {
  for (unsigned x = 0; x < 256; x++) {
    for (int i = 0; i < 2; i++) q[i][x] = static_cast<unsigned char>(Permute(kNibbles[i], x));
  }
  for (int column = 0; column < 4; column++) {
    for (int x = 0; x < 256; x++) {
      uint32_t word = 0;
      for (int row = 3; row >= 0; row--) {
        word = word << 8 | Multiply(q[kLastStage[column]][x], kMds[row][column], kMdsPolynomial);
      }
      mds[column][x] = word;
    }
  }
}

// The key bytes that one column of the function h takes, in the order in which they are taken.  They are copied
// into registers: what a pointer to bytes names would have to be read anew after each store.
template <int kWords>
struct TColumnKey {
  TColumnKey(TKeyWords l, int column) {
    for (int j = 0; j < kWords; j++) bytes[j] = l.bytes[j * l.stride + column];
  }
  unsigned char bytes[kWords];
};

// The last `kSteps` steps of a column.  All counts are constants, so that the compiler lays the steps out in a row.
template <int kSteps, int kColumn, int kWords>
inline uint32_t HColumn(unsigned x, const TColumnKey<kWords>& key) {
  if constexpr (kSteps > 3) x = q[kStage[3][kColumn]][x] ^ key.bytes[3];
  if constexpr (kSteps > 2) x = q[kStage[2][kColumn]][x] ^ key.bytes[2];
  if constexpr (kSteps > 1) x = q[kStage[1][kColumn]][x] ^ key.bytes[1];
  x = q[kStage[0][kColumn]][x] ^ key.bytes[0];
  return mds[kColumn][x];
}

template <int kWords, int kColumn>
void FillSbox(TKeyWords l, Twofish_key* prepared) {
  const TColumnKey<kWords> key(l, kColumn);
  uint32_t* const s = prepared->s[kColumn];
  // The first step of four neighbours is one load: it goes through its permutation in order.
  constexpr int kFirst = kWords - 1;
  const uint32_t fourTimes = key.bytes[kFirst] * 0x01010101U;
  for (unsigned x = 0; x < 256; x += 4) {
    const uint32_t four = LoadLittle32(q[kStage[kFirst][kColumn]] + x) ^ fourTimes;
    s[x] = HColumn<kFirst, kColumn>(SelectByte(four, 0), key);
    s[x + 1] = HColumn<kFirst, kColumn>(SelectByte(four, 1), key);
    s[x + 2] = HColumn<kFirst, kColumn>(SelectByte(four, 2), key);
    s[x + 3] = HColumn<kFirst, kColumn>(SelectByte(four, 3), key);
  }
}

// The function h of words whose four bytes are all the same; the subkeys take no other.
template <int kWords>
struct TSubkeyWords {
  explicit TSubkeyWords(TKeyWords l) : key{{l, 0}, {l, 1}, {l, 2}, {l, 3}} {}
  uint32_t Of(unsigned x) const {
    return HColumn<kWords, 0>(x, key[0]) ^ HColumn<kWords, 1>(x, key[1]) ^ HColumn<kWords, 2>(x, key[2]) ^
           HColumn<kWords, 3>(x, key[3]);
  }
  TColumnKey<kWords> key[4];
};

template <int kWords>
void FillTables(const unsigned char* key, const unsigned char* sboxKey, Twofish_key* prepared) {
  const TSubkeyWords<kWords> even({key, 8}), odd({key + 4, 8});
  for (unsigned i = 0; i < 40; i += 2) {
    const uint32_t a = even.Of(i), b = RotateLeft(odd.Of(i + 1), 8);
    prepared->k[i] = a + b;
    prepared->k[i + 1] = RotateLeft(a + 2 * b, 9);
  }
  const TKeyWords l{sboxKey, 4};
  FillSbox<kWords, 0>(l, prepared);
  FillSbox<kWords, 1>(l, prepared);
  FillSbox<kWords, 2>(l, prepared);
  FillSbox<kWords, 3>(l, prepared);
}

// Eight key bytes times the RS matrix.  The matrix is that of a Reed-Solomon code with the generator polynomial
// x^4 + (a + 1/a) x^3 + a x^2 + (a + 1/a) x + 1, so the product is the remainder of a division, a byte a step.
uint32_t RsRemainder(const unsigned char* eight) {
  uint32_t r = 0;
  for (int i = 7; i >= -4; i--) {
    const uint32_t top = r >> 24;
    const uint32_t byA = (top << 1) ^ ((top & 0x80) != 0 ? kRsPolynomial : 0);
    const uint32_t byBoth = byA ^ (top >> 1) ^ ((top & 1) != 0 ? kRsPolynomial >> 1 : 0);
    r = (r << 8 | (i >= 0 ? eight[i] : 0)) ^ (byBoth << 24) ^ (byA << 16) ^ (byBoth << 8) ^ top;
  }
  return r;
}

// The function g of the paper; G1 takes its word rotated left by 8.
inline uint32_t G0(const Twofish_key* key, uint32_t x) {
  return key->s[0][SelectByte(x, 0)] ^ key->s[1][SelectByte(x, 1)] ^ key->s[2][SelectByte(x, 2)] ^
         key->s[3][SelectByte(x, 3)];
}
inline uint32_t G1(const Twofish_key* key, uint32_t x) {
  return key->s[1][SelectByte(x, 0)] ^ key->s[2][SelectByte(x, 1)] ^ key->s[3][SelectByte(x, 2)] ^
         key->s[0][SelectByte(x, 3)];
}

// Round `r`; the next one takes the halves the other way round instead of swapping them.
inline void EncryptRound(const Twofish_key* key, int r, uint32_t a, uint32_t b, uint32_t& c, uint32_t& d) {
  const uint32_t t0 = G0(key, a), t1 = G1(key, b);
  c = RotateRight(c ^ (t0 + t1 + key->k[8 + 2 * r]), 1);
  d = RotateLeft(d, 1) ^ (t0 + 2 * t1 + key->k[9 + 2 * r]);
}
inline void DecryptRound(const Twofish_key* key, int r, uint32_t a, uint32_t b, uint32_t& c, uint32_t& d) {
  const uint32_t t0 = G0(key, a), t1 = G1(key, b);
  c = RotateLeft(c, 1) ^ (t0 + t1 + key->k[8 + 2 * r]);
  d = RotateRight(d ^ (t0 + 2 * t1 + key->k[9 + 2 * r]), 1);
}

}  // namespace

void Twofish_fatal(const char* message) {
  fprintf(stderr, "\nTwofish fatal error: %s\nProcess terminated\n", message);
  exit(kExitEncryption);
}

void Twofish_build_tables() {
  BuildTables();
  initialised = true;
}

void Twofish_prepare_key(const unsigned char* key, int length, Twofish_key* prepared) {
  if (!initialised) Twofish_fatal("Twofish implementation was not initialised.");
  if (length < 0 || length > 32) Twofish_fatal("Twofish_prepare_key: illegal key length");

  struct {
    unsigned char key[32];
    unsigned char s[16];  // the S-box key, its words in reverse
  } secret = {};
  if (length > 0) memcpy(secret.key, key, static_cast<size_t>(length));
  const int words = length <= 16 ? 2 : (length + 7) / 8;

  for (int i = 0; i < words; i++) {
    StoreLittle32(RsRemainder(secret.key + 8 * i), secret.s + 4 * (words - 1 - i));
  }
  switch (words) {
    case 2:
      FillTables<2>(secret.key, secret.s, prepared);
      break;
    case 3:
      FillTables<3>(secret.key, secret.s, prepared);
      break;
    case 4:
      FillTables<4>(secret.key, secret.s, prepared);
      break;
    default:
      Twofish_fatal("Twofish h(): Illegal argument");
  }
  explicit_bzero(&secret, sizeof secret);
}

void Twofish_encrypt(const Twofish_key* key, const unsigned char in[16], unsigned char out[16]) {
  uint32_t a = LoadLittle32(in) ^ key->k[0], b = LoadLittle32(in + 4) ^ key->k[1];
  uint32_t c = LoadLittle32(in + 8) ^ key->k[2], d = LoadLittle32(in + 12) ^ key->k[3];
  for (int r = 0; r < 16; r += 2) {
    EncryptRound(key, r, a, b, c, d);
    EncryptRound(key, r + 1, c, d, a, b);
  }
  StoreLittle32(c ^ key->k[4], out);
  StoreLittle32(d ^ key->k[5], out + 4);
  StoreLittle32(a ^ key->k[6], out + 8);
  StoreLittle32(b ^ key->k[7], out + 12);
}

void Twofish_decrypt(const Twofish_key* key, const unsigned char in[16], unsigned char out[16]) {
  uint32_t c = LoadLittle32(in) ^ key->k[4], d = LoadLittle32(in + 4) ^ key->k[5];
  uint32_t a = LoadLittle32(in + 8) ^ key->k[6], b = LoadLittle32(in + 12) ^ key->k[7];
  for (int r = 14; r >= 0; r -= 2) {
    DecryptRound(key, r + 1, c, d, a, b);
    DecryptRound(key, r, a, b, c, d);
  }
  StoreLittle32(a ^ key->k[0], out);
  StoreLittle32(b ^ key->k[1], out + 4);
  StoreLittle32(c ^ key->k[2], out + 8);
  StoreLittle32(d ^ key->k[3], out + 12);
}

namespace {

// A block of which the first byte alone is wanted.
struct TFirst {
  inline TFirst(const Twofish_key* key, uint64_t low, uint64_t high)
      : a(static_cast<uint32_t>(low) ^ key->k[0]),
        b(static_cast<uint32_t>(low >> 32) ^ key->k[1]),
        c(static_cast<uint32_t>(high) ^ key->k[2]),
        d(static_cast<uint32_t>(high >> 32) ^ key->k[3]) {}

  inline void TwoRounds(const Twofish_key* key, int r) {
    EncryptRound(key, r, a, b, c, d);
    EncryptRound(key, r + 1, c, d, a, b);
  }
  // The last round leaves this word alone, and half of the one before is not needed for it.
  inline unsigned char End(const Twofish_key* key) {
    EncryptRound(key, 14, a, b, c, d);
    return static_cast<unsigned char>(c ^ key->k[4]);
  }

  uint32_t a, b, c, d;
};

}  // namespace

unsigned char Twofish_encrypt_first(const Twofish_key* key, uint64_t low, uint64_t high) {
  TFirst block(key, low, high);
  for (int r = 0; r < 14; r += 2) block.TwoRounds(key, r);
  return block.End(key);
}

TTwoBytes Twofish_encrypt_first_of_two(const Twofish_key* key, const uint64_t low[2], const uint64_t high[2]) {
  TFirst one(key, low[0], high[0]), two(key, low[1], high[1]);
  for (int r = 0; r < 14; r += 2) {
    one.TwoRounds(key, r);
    two.TwoRounds(key, r);
  }
  return {one.End(key), two.End(key)};
}
