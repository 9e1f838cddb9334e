#include "checks/decision.h"

#include <utility>

void TDecision::Ask(uint32_t question) {
  const auto node = static_cast<uint32_t>(nodes.size());
  nodes.push_back({question, {node * 2 + kIfYes, node * 2 + kIfNo}});
  parts.push_back({node, {node * 2 + kIfYes, node * 2 + kIfNo}});
}

void TDecision::PutFalse() {
  parts.push_back({kNo, {0, 0}});
}

void TDecision::Not() {
  TPart& part = parts.back();
  if (part.IsConstant())
    part.start = part.start == kYes ? kNo : kYes;
  else
    std::swap(part.ends[kIfYes], part.ends[kIfNo]);
}

void TDecision::And() {
  Join(kYes, kIfYes);
}

void TDecision::Or() {
  Join(kNo, kIfNo);
}

// Where the right part ends with `kind`, the left one decides; the other ends are the whole's.  `neutral` is the
// constant that leaves the decision to the other part.
void TDecision::Join(uint32_t neutral, uint32_t kind) {
  const TPart right = parts.back();
  parts.pop_back();
  TPart& left = parts.back();
  if (left.IsConstant() || right.IsConstant()) {
    const bool leftDecides = left.IsConstant() ? left.start != neutral : right.start == neutral;
    if (!leftDecides) left = right;
    return;
  }
  Lead(right.ends[kind], left.start);
  left.start = right.start;
  std::swap(Next(left.ends[1 - kind]), Next(right.ends[1 - kind]));  // makes one ring of two
}

void TDecision::Lead(uint32_t ring, uint32_t target) {
  uint32_t end = ring;
  do end = std::exchange(Next(end), target);
  while (end != ring);
}

void TDecision::Finish() {
  const TPart& whole = parts.back();
  start = whole.start;
  if (whole.IsConstant()) return;
  Lead(whole.ends[kIfYes], kYes);
  Lead(whole.ends[kIfNo], kNo);
  parts = std::vector<TPart>();
}
