// Folding (V. Gopal and others, "Fast CRC Computation for Generic Polynomials Using PCLMULQDQ Instruction", Intel
// 2009): what a lane of 128 bits holds is moved D bits on by multiplying its halves with x^(D+32) and x^(D-32)
// modulo the polynomial, and added to the lane that stands there.  Several lanes side by side hide the multiplier's
// latency. The one that is left in the end is a message of sixteen bytes of the same remainder: the tables finish
// it.
#include "protocol/crc32.h"

#include "protocol/bytes.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_acle.h>
#include <sys/auxv.h>
#endif

namespace {

constexpr uint32_t kPolynomial = 0xEDB88320;
constexpr int kSlices = 16;

// slice[k][b] is what byte b becomes once k zero bytes have followed it; so sixteen bytes are looked up side by
// side and summed, where the plain method waits for each before the next.
struct TSlices {
  uint32_t slice[kSlices][256] = {};
  constexpr TSlices() {
    for (uint32_t b = 0; b < 256; b++) {
      uint32_t crc = b;
      for (int i = 0; i < 8; i++) crc = (crc & 1) != 0 ? crc >> 1 ^ kPolynomial : crc >> 1;
      slice[0][b] = crc;
    }
    for (int k = 1; k < kSlices; k++) {
      for (int b = 0; b < 256; b++) slice[k][b] = slice[0][slice[k - 1][b] & 0xFF] ^ slice[k - 1][b] >> 8;
    }
  }
};
constexpr TSlices kTable;

// Four bytes, of which the last is followed by `behind` more in the same step.
inline uint32_t FourBytes(uint32_t word, int behind) {
  return kTable.slice[behind + 3][SelectByte(word, 0)] ^ kTable.slice[behind + 2][SelectByte(word, 1)] ^
         kTable.slice[behind + 1][SelectByte(word, 2)] ^ kTable.slice[behind][SelectByte(word, 3)];
}

uint32_t StepByTables(uint32_t crc, const unsigned char* p, size_t left) {
  for (; left >= kSlices; left -= kSlices, p += kSlices) {
    crc = FourBytes(LoadLittle32(p) ^ crc, 12) ^ FourBytes(LoadLittle32(p + 4), 8) ^
          FourBytes(LoadLittle32(p + 8), 4) ^ FourBytes(LoadLittle32(p + 12), 0);
  }
  for (; left > 0; left--, p++) crc = kTable.slice[0][(crc ^ *p) & 0xFF] ^ crc >> 8;
  return crc;
}

bool Always() {
  return true;
}

#if defined(__x86_64__) || defined(__i386__)

// x^n modulo the polynomial as the multiplier takes it: reflected, and a bit up, since the product of reflected
// factors comes out a bit low.
constexpr uint64_t PowerOfX(int n) {
  uint32_t power = 0x80000000;  // x^0
  for (; n > 0; n--) power = (power & 1) != 0 ? power >> 1 ^ kPolynomial : power >> 1;
  return static_cast<uint64_t>(power) << 1;
}

constexpr size_t kLane = 16;
constexpr size_t kLanes = 4;  // vectors side by side
#define TAV_TARGET_CLMUL __attribute__((target("sse2,pclmul")))
#define TAV_TARGET_VCLMUL __attribute__((target("avx512f,vpclmulqdq,pclmul")))

// For lanes that are moved so many bits on.
template <int kDistance>
struct TFactors {
  static constexpr long long kLow = static_cast<long long>(PowerOfX(kDistance + 32));
  static constexpr long long kHigh = static_cast<long long>(PowerOfX(kDistance - 32));
};

template <int kDistance>
inline __m128i TAV_TARGET_CLMUL Factors() {
  return _mm_set_epi64x(TFactors<kDistance>::kHigh, TFactors<kDistance>::kLow);
}
template <int kDistance>
inline __m512i TAV_TARGET_VCLMUL WideFactors() {
  constexpr long long kLow = TFactors<kDistance>::kLow, kHigh = TFactors<kDistance>::kHigh;
  return _mm512_set4_epi64(kHigh, kLow, kHigh, kLow);
}

inline __m128i TAV_TARGET_CLMUL Fold(__m128i lane, __m128i factors, __m128i onto) {
  return _mm_xor_si128(
      onto, _mm_xor_si128(_mm_clmulepi64_si128(lane, factors, 0x00), _mm_clmulepi64_si128(lane, factors, 0x11)));
}

inline __m128i TAV_TARGET_CLMUL Load(const unsigned char* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// Goes on with one lane, which holds all that was before p.
uint32_t TAV_TARGET_CLMUL FinishLane(__m128i lane, const unsigned char* p, size_t left) {
  const __m128i factors = Factors<128>();
  for (; left >= kLane; left -= kLane, p += kLane) lane = Fold(lane, factors, Load(p));
  unsigned char rest[kLane];
  _mm_storeu_si128(reinterpret_cast<__m128i*>(rest), lane);
  return StepByTables(StepByTables(0, rest, kLane), p, left);
}

uint32_t TAV_TARGET_CLMUL StepByFolding(uint32_t crc, const unsigned char* p, size_t left) {
  constexpr size_t kStep = kLanes * kLane;
  if (left < kStep) return StepByTables(crc, p, left);
  __m128i lane[kLanes];
  for (size_t i = 0; i < kLanes; i++) lane[i] = Load(p + i * kLane);
  lane[0] = _mm_xor_si128(lane[0], _mm_cvtsi32_si128(static_cast<int>(crc)));
  const __m128i factors = Factors<8 * kStep>();
  for (left -= kStep, p += kStep; left >= kStep; left -= kStep, p += kStep) {
    for (size_t i = 0; i < kLanes; i++) lane[i] = Fold(lane[i], factors, Load(p + i * kLane));
  }
  for (size_t i = 1; i < kLanes; i++) lane[i] = Fold(lane[i - 1], Factors<128>(), lane[i]);
  return FinishLane(lane[kLanes - 1], p, left);
}

inline __m512i TAV_TARGET_VCLMUL FoldWide(__m512i lanes, __m512i factors, __m512i onto) {
  const __m512i low = _mm512_clmulepi64_epi128(lanes, factors, 0x00);
  const __m512i high = _mm512_clmulepi64_epi128(lanes, factors, 0x11);
  return _mm512_ternarylogic_epi64(low, high, onto, 0x96);  // the sum of the three
}

// As above with four lanes to a vector.
uint32_t TAV_TARGET_VCLMUL StepByWideFolding(uint32_t crc, const unsigned char* p, size_t left) {
  constexpr size_t kWide = 4 * kLane, kStep = kLanes * kWide;
  if (left < kStep) return StepByFolding(crc, p, left);
  __m512i wide[kLanes];
  for (size_t i = 0; i < kLanes; i++) wide[i] = _mm512_loadu_si512(p + i * kWide);
  wide[0] = _mm512_xor_si512(wide[0], _mm512_maskz_set1_epi32(1, static_cast<int>(crc)));
  const __m512i factors = WideFactors<8 * kStep>();
  for (left -= kStep, p += kStep; left >= kStep; left -= kStep, p += kStep) {
    for (size_t i = 0; i < kLanes; i++) wide[i] = FoldWide(wide[i], factors, _mm512_loadu_si512(p + i * kWide));
  }
  const __m512i next = WideFactors<8 * kWide>();
  for (size_t i = 1; i < kLanes; i++) wide[i] = FoldWide(wide[i - 1], next, wide[i]);
  unsigned char rest[kWide];
  _mm512_storeu_si512(rest, wide[kLanes - 1]);
  return StepByFolding(StepByFolding(0, rest, kWide), p, left);
}

bool HasFolding() {
  return __builtin_cpu_supports("pclmul") != 0;
}
bool HasWideFolding() {
  return HasFolding() && __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("vpclmulqdq") != 0;
}

#elif defined(__aarch64__)

__attribute__((target("+crc"))) uint32_t StepByInstruction(uint32_t crc, const unsigned char* p, size_t left) {
  for (; left >= 8; left -= 8, p += 8)
    crc = __crc32d(crc, LoadLittle32(p) | static_cast<uint64_t>(LoadLittle32(p + 4)) << 32);
  for (; left > 0; left--, p++) crc = __crc32b(crc, *p);
  return crc;
}

bool HasInstruction() {
  constexpr unsigned long kCrc32 = 1UL << 7;  // HWCAP_CRC32
  return (getauxval(AT_HWCAP) & kCrc32) != 0;
}

#endif

}  // namespace

const TCrcForm kCrcForms[] = {
#if defined(__x86_64__) || defined(__i386__)
    {"VPCLMULQDQ", HasWideFolding, StepByWideFolding},
    {"PCLMULQDQ", HasFolding, StepByFolding},
#elif defined(__aarch64__)
    {"CRC32 instructions", HasInstruction, StepByInstruction},
#endif
    {"tables", Always, StepByTables},
    {nullptr, nullptr, nullptr},
};

TCrcStep FastestCrcStep() {
  static const TCrcStep fastest = [] {
    const TCrcForm* form = kCrcForms;
    while (!form->isThere()) form++;
    return form->step;
  }();
  return fastest;
}
