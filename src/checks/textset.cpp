#include "checks/textset.h"

#include <string.h>

#include <algorithm>
#include <numeric>

#include "checks/textsearch.h"

namespace {

// Fewer texts of one length than this are found faster one by one.
constexpr uint32_t kFewTexts = 5;

// Marks for each text of a group, so that one place of a line in so many is looked up for nothing.
constexpr uint32_t kMarksPerText = 16;
constexpr int kFewestMarkBits = 6;

constexpr int kFirstSlotBits = 6;
constexpr uint64_t kBase = 0x9E3779B97F4A7C15;  // odd and without a pattern: any such number will do
constexpr uint64_t kMix = 0xD6E8FEB86659FD93;

uint64_t ByteOf(char c) {
  return static_cast<unsigned char>(c);
}

// The bytes are the digits of a number to the base kBase, modulo 2^64: so the hash rolls along a line (Karp and
// Rabin, 1987).
uint64_t HashOf(const char* text, size_t length) {
  uint64_t hash = 0;
  for (size_t i = 0; i < length; i++) hash = hash * kBase + ByteOf(text[i]);
  return hash;
}

uint64_t WeightOf(size_t length) {
  uint64_t weight = 1;
  for (size_t i = 1; i < length; i++) weight *= kBase;
  return weight;
}

uint32_t TagOf(uint64_t hash) {
  return static_cast<uint32_t>(hash >> 16);
}

}  // namespace

size_t TTextSet::SlotOf(uint64_t hash, size_t length) const {
  return static_cast<size_t>(((hash ^ length) * kMix) >> (64 - slotBits));
}

bool TTextSet::Is(uint32_t number, uint64_t hash, const char* text, size_t length) const {
  const TText& t = texts[number];
  return t.length == length && t.tag == TagOf(hash) && memcmp(bytes.data() + t.begin, text, length) == 0;
}

uint32_t TTextSet::Add(const char* text, size_t length) {
  if (texts.size() * 2 >= slots.size()) Enlarge();
  const uint64_t hash = HashOf(text, length);
  size_t slot = SlotOf(hash, length);
  for (; slots[slot] != 0; slot = (slot + 1) & (slots.size() - 1)) {
    if (Is(slots[slot] - 1, hash, text, length)) return slots[slot] - 1;
  }
  texts.push_back({static_cast<uint32_t>(bytes.size()), static_cast<uint32_t>(length), TagOf(hash)});
  bytes.append(text, length);
  slots[slot] = static_cast<uint32_t>(texts.size());
  return slots[slot] - 1;
}

void TTextSet::Enlarge() {
  slotBits = slotBits == 0 ? kFirstSlotBits : slotBits + 1;
  slots.assign(size_t{1} << slotBits, 0);
  for (uint32_t number = 0; number < texts.size(); number++) {
    const TText& t = texts[number];
    size_t slot = SlotOf(HashOf(bytes.data() + t.begin, t.length), t.length);
    while (slots[slot] != 0) slot = (slot + 1) & (slots.size() - 1);
    slots[slot] = number + 1;
  }
}

void TTextSet::Prepare() {
  found.assign(texts.size(), 0);
  byLength.resize(texts.size());
  std::iota(byLength.begin(), byLength.end(), 0U);
  std::sort(byLength.begin(), byLength.end(),
            [this](uint32_t a, uint32_t b) { return texts[a].length < texts[b].length; });
  for (uint32_t i = 0; i < byLength.size(); i++) {
    const uint32_t length = texts[byLength[i]].length;
    if (groups.empty() || groups.back().length != length) groups.push_back({i, 0, length, WeightOf(length), 0, 0});
    groups.back().count++;
  }
  for (TGroup& group : groups) {
    if (group.count >= kFewTexts) Mark(group);
  }
}

void TTextSet::Mark(TGroup& group) {
  group.markBits = kFewestMarkBits;
  while ((1U << group.markBits) < group.count * kMarksPerText) group.markBits++;
  group.marks = static_cast<uint32_t>(marks.size());
  marks.resize(marks.size() + (size_t{1} << group.markBits) / 64);
  for (uint32_t i = group.begin; i < group.begin + group.count; i++) {
    const TText& t = texts[byLength[i]];
    const uint64_t mark = (HashOf(bytes.data() + t.begin, t.length) * kMix) >> (64 - group.markBits);
    marks[group.marks + mark / 64] |= uint64_t{1} << mark % 64;
  }
}

bool TTextSet::IsMarked(const TGroup& group, uint64_t hash) const {
  const uint64_t mark = (hash * kMix) >> (64 - group.markBits);
  return (marks[group.marks + mark / 64] >> mark % 64 & 1) != 0;
}

bool TTextSet::FindOne(uint32_t number, const char* line, size_t length, bool wholeWord) const {
  const TText& t = texts[number];
  if (t.length > length) return false;
  TTextFinder finder(bytes.data() + t.begin, t.length);
  return (wholeWord ? finder.FirstWord(line, line + length) : finder.First(line, line + length)) != nullptr;
}

bool TTextSet::FindAll(const char* line, size_t length, bool wholeWord) {
  for (const uint32_t number : hits) found[number] = 0;
  hits.clear();
  for (const TGroup& group : groups) {
    if (group.length > length) break;
    if (group.count >= kFewTexts) {
      Roll(group, line, length, wholeWord);
      continue;
    }
    for (uint32_t i = group.begin; i < group.begin + group.count; i++) {
      if (!FindOne(byLength[i], line, length, wholeWord)) continue;
      found[byLength[i]] = 1;
      hits.push_back(byLength[i]);
    }
  }
  return !hits.empty();
}

void TTextSet::Roll(const TGroup& group, const char* line, size_t length, bool wholeWord) {
  const char* last = line + length - group.length;  // where an occurrence may still begin
  uint64_t hash = HashOf(line, group.length);
  for (const char* at = line;; at++) {
    const auto inWord = [&] {
      return wholeWord && ((at > line && IsWordByte(at[-1])) || (at < last && IsWordByte(at[group.length])));
    };
    if (IsMarked(group, hash) && !inWord()) Look(hash, at, group.length);
    if (at == last) return;
    hash = (hash - ByteOf(*at) * group.weight) * kBase + ByteOf(at[group.length]);
  }
}

// A text that has been found is not compared again: so a line of one repeated byte costs no more than another.
void TTextSet::Look(uint64_t hash, const char* at, size_t length) {
  for (size_t slot = SlotOf(hash, length); slots[slot] != 0; slot = (slot + 1) & (slots.size() - 1)) {
    const uint32_t number = slots[slot] - 1;
    if (found[number] || !Is(number, hash, at, length)) continue;
    found[number] = 1;
    hits.push_back(number);
    return;
  }
}
