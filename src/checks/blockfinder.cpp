#include "checks/blockfinder.h"

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <utility>

#include "core/memsearch.h"

// Of the text the two bytes are chosen that are likely to be the rarest.  Both are compared with the block over the
// width of a few vectors at a time; only where both stand at their distance is the text itself compared.  (W. Mula,
// "SIMD-friendly algorithms for substring searching", 2016, with rare bytes in the place of the first and the
// last.) The vectors are the compiler's own, so that one source serves every processor.
//
// What must stay true: no byte outside of [from, end) is read; and the comparisons are paid for by the bytes that
// were searched, as a text such as "aaaa...ab" would else cost its length at every place of a block of "a".

namespace {

constexpr size_t kVectors = 4;  // of a group
constexpr size_t kWidest = 32;
constexpr long long kFirstCredit = 1 << 20;
constexpr int kCreditPerByte = 4;
constexpr int kCostOfALook = 16;  // beside the text's length

typedef unsigned char TBytes16 __attribute__((vector_size(16)));
typedef unsigned char TBytes32 __attribute__((vector_size(32)));

// How common a byte is in logs, from the most common on; what is not named is rare.
constexpr char kCommon[] = " etaoinsrlcd0123456789mup:-.hg/fb,y_w=v[]()k\"'\n\r\tETAOINSRLCDMxjqz";

constexpr std::array<unsigned char, 256> MakeRarity() {
  std::array<unsigned char, 256> rarity = {};
  for (unsigned char& r : rarity) r = 255;
  for (size_t i = 0; kCommon[i] != '\0'; ++i)
    rarity[static_cast<unsigned char>(kCommon[i])] = static_cast<unsigned char>(i);
  return rarity;
}
constexpr std::array<unsigned char, 256> kRarity = MakeRarity();

// Bytes: the first one, its bit, the second one, its bit; `at1` is where the first is looked for, the second stands
// `gap` bytes behind it.  Vectors are passed nowhere, as how that is done depends on the processor.
template <class TBytes>
__attribute__((always_inline)) inline bool LookAtGroup(const unsigned char bytes[4], const char* at1, size_t gap,
                                                       unsigned char* equal) {
  constexpr size_t kWidth = sizeof(TBytes);
  const TBytes none = {};
  const TBytes byte1 = none + bytes[0], bit1 = none + bytes[1], byte2 = none + bytes[2], bit2 = none + bytes[3];
  TBytes any = none;
  for (size_t i = 0; i < kVectors; ++i) {
    TBytes here, there;
    memcpy(&here, at1 + i * kWidth, kWidth);
    memcpy(&there, at1 + gap + i * kWidth, kWidth);
    const TBytes found = reinterpret_cast<TBytes>(((here | bit1) == byte1) & ((there | bit2) == byte2));
    memcpy(equal + i * kWidth, &found, kWidth);
    any |= found;
  }
  uint64_t words[kWidth / sizeof(uint64_t)], sum = 0;
  memcpy(words, &any, sizeof words);
  for (const uint64_t word : words) sum |= word;
  return sum != 0;
}

template <class TBytes>
__attribute__((always_inline)) inline const char* GoForward(const unsigned char bytes[4], const char* at1,
                                                            const char* last, size_t gap, unsigned char* equal) {
  while (at1 <= last && !LookAtGroup<TBytes>(bytes, at1, gap, equal)) at1 += kVectors * sizeof(TBytes);
  return at1;
}

template <class TBytes>
__attribute__((always_inline)) inline const char* GoBackward(const unsigned char bytes[4], const char* at1,
                                                             const char* last, size_t gap, unsigned char* equal) {
  while (at1 >= last && !LookAtGroup<TBytes>(bytes, at1, gap, equal)) at1 -= kVectors * sizeof(TBytes);
  return at1;
}

const char* Forward16(const unsigned char bytes[4], const char* at1, const char* last, size_t gap,
                      unsigned char* equal) {
  return GoForward<TBytes16>(bytes, at1, last, gap, equal);
}
const char* Backward16(const unsigned char bytes[4], const char* at1, const char* last, size_t gap,
                       unsigned char* equal) {
  return GoBackward<TBytes16>(bytes, at1, last, gap, equal);
}
bool Always() {
  return true;
}

#ifdef __x86_64__
__attribute__((target("avx2"))) const char* Forward32(const unsigned char bytes[4], const char* at1,
                                                      const char* last, size_t gap, unsigned char* equal) {
  return GoForward<TBytes32>(bytes, at1, last, gap, equal);
}
__attribute__((target("avx2"))) const char* Backward32(const unsigned char bytes[4], const char* at1,
                                                       const char* last, size_t gap, unsigned char* equal) {
  return GoBackward<TBytes32>(bytes, at1, last, gap, equal);
}
bool HasAvx2() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2") != 0;
}
#endif

const TFinderForm* Fastest() {
  const TFinderForm* form = kFinderForms;
  while (!form->isThere()) ++form;
  return form;
}

bool IsSmallLetter(unsigned char c) {
  return c >= 'a' && c <= 'z';
}

bool SameButCase(const char* block, const char* lower, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    if (LoCase(block[i]) != lower[i]) return false;
  }
  return true;
}

}  // namespace

const TFinderForm kFinderForms[] = {
#ifdef __x86_64__
    {"avx2", HasAvx2, kVectors * 32, Forward32, Backward32},
#endif
    {"any", Always, kVectors * 16, Forward16, Backward16},
    {nullptr, nullptr, 0, nullptr, nullptr},
};
const TFinderForm* finderForm = Fastest();

TBlockFinder::TBlockFinder(std::string wanted, bool ignoreCase)
    : text(std::move(wanted)), fold(ignoreCase), credit(kFirstCredit) {
  const auto rarity = [this](size_t place) { return kRarity[static_cast<unsigned char>(text[place])]; };
  const auto rare = [this](size_t place) {
    const auto byte = static_cast<unsigned char>(text[place]);
    return TRare{place, byte, static_cast<unsigned char>(fold && IsSmallLetter(byte) ? 0x20 : 0)};
  };
  size_t one = 0, two = text.size() - 1;
  for (size_t i = 0; i < text.size(); ++i) {
    if (rarity(i) > rarity(one)) one = i;
  }
  if (two == one) two = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (i != one && rarity(i) > rarity(two)) two = i;
  }
  first = rare(std::min(one, two));
  second = rare(std::max(one, two));
}

bool TBlockFinder::Is(const char* at) {
  credit -= static_cast<long long>(text.size()) + kCostOfALook;
  return fold ? SameButCase(at, text.data(), text.size()) : memcmp(at, text.data(), text.size()) == 0;
}

bool TBlockFinder::PairAt(const char* at) const {
  const auto byteAt = [at](const TRare& rare) { return static_cast<unsigned char>(at[rare.place]) | rare.bit; };
  return byteAt(first) == first.byte && byteAt(second) == second.byte;
}

const char* TBlockFinder::FirstInGroup(const char* group, const char* last, const unsigned char* equal,
                                       size_t width) {
  for (size_t i = 0; i < width; ++i) {
    if (equal[i] != 0 && group + i <= last && Is(group + i)) return group + i;
  }
  return nullptr;
}

const char* TBlockFinder::LastInGroup(const char* group, const unsigned char* equal, size_t width) {
  for (size_t i = width; i-- > 0;) {
    if (equal[i] != 0 && Is(group + i)) return group + i;
  }
  return nullptr;
}

const char* TBlockFinder::First(const char* from, const char* end) {
  const auto size = static_cast<size_t>(end - from);
  if (size < text.size() || GaveUp()) return nullptr;
  const TFinderForm& form = *finderForm;
  const unsigned char bytes[4] = {first.byte, first.bit, second.byte, second.bit};
  const char* const last = end - text.size();
  credit += kCreditPerByte * static_cast<long long>(size);
  const char* at = from;
  if (size >= second.place + form.group) {
    unsigned char equal[kVectors * kWidest];
    const char* const lastGroup = end - second.place - form.group;
    for (; at <= lastGroup; at += form.group) {
      at = form.forward(bytes, at + first.place, lastGroup + first.place, second.place - first.place, equal) -
           first.place;
      if (at > lastGroup) break;
      const char* const hit = FirstInGroup(at, last, equal, form.group);
      if (hit != nullptr) return credit -= kCreditPerByte * (end - hit), hit;
      if (GaveUp()) return nullptr;
    }
  }
  for (; at <= last; ++at) {
    if (PairAt(at) && Is(at)) return at;
  }
  return nullptr;
}

const char* TBlockFinder::Last(const char* from, const char* end) {
  const auto size = static_cast<size_t>(end - from);
  if (size < text.size() || GaveUp()) return nullptr;
  const TFinderForm& form = *finderForm;
  const unsigned char bytes[4] = {first.byte, first.bit, second.byte, second.bit};
  size_t left = size - text.size() + 1;  // places that an occurrence may begin at
  credit += kCreditPerByte * static_cast<long long>(size);
  if (left >= form.group) {
    unsigned char equal[kVectors * kWidest];
    while (left >= form.group) {
      const char* const lowest = from + left % form.group;
      const char* const at = form.backward(bytes, from + left - form.group + first.place, lowest + first.place,
                                           second.place - first.place, equal) -
                             first.place;
      if (at < lowest) {
        left %= form.group;
        break;
      }
      const char* const hit = LastInGroup(at, equal, form.group);
      if (hit != nullptr) return credit -= kCreditPerByte * (hit - from), hit;
      if (GaveUp()) return nullptr;
      left = static_cast<size_t>(at - from);
    }
  }
  while (left-- > 0) {
    if (PairAt(from + left) && Is(from + left)) return from + left;
  }
  return nullptr;
}
