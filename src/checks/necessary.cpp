#include "checks/necessary.h"

#include <algorithm>

void TNecessaryTexts::Push(const TPart& part) {
  tooDeep = tooDeep || waiting.size() == kDeepest;
  if (!tooDeep) waiting.push_back(part);
}

void TNecessaryTexts::Ask(const char* text, size_t length) {
  Push({true, 1, {{text, length}}});
}

void TNecessaryTexts::PutFalse() {
  Push({true, 0, {}});
}

// What its falsehood needs is not kept: texts that must be missing find no lines.
void TNecessaryTexts::Not() {
  if (!tooDeep) waiting.back().known = false;
}

// Both sides are needed, so the better one is enough: the fewest texts, of these the longest.
void TNecessaryTexts::And() {
  if (tooDeep) return;
  const TPart right = waiting.back();
  waiting.pop_back();
  if (IsBetter(right, waiting.back())) waiting.back() = right;
}

void TNecessaryTexts::Or() {
  if (tooDeep) return;
  const TPart right = waiting.back();
  waiting.pop_back();
  TPart& left = waiting.back();
  left.known = left.known && right.known && left.count + right.count <= kMost;
  if (!left.known) return;
  std::copy(right.texts, right.texts + right.count, left.texts + left.count);
  left.count += right.count;
}

bool TNecessaryTexts::IsBetter(const TPart& a, const TPart& b) {
  if (!a.known || !b.known) return a.known;
  if (a.count != b.count) return a.count < b.count;
  const auto shortest = [](const TPart& part) {
    size_t least = 0;
    for (size_t i = 0; i < part.count; ++i)
      least = i == 0 ? part.texts[i].length : std::min(least, part.texts[i].length);
    return least;
  };
  return shortest(a) > shortest(b);
}

std::vector<std::string> TNecessaryTexts::Texts() const {
  std::vector<std::string> texts;
  for (size_t i = 0; i < waiting.back().count; ++i) {
    texts.emplace_back(waiting.back().texts[i].bytes, waiting.back().texts[i].length);
  }
  return texts;
}
