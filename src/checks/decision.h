// A boolean expression as a chain of questions: which text to look for first, and where to go on from each answer.
// Only the questions that the answer depends on are asked.
//
// It is built from Polish notation, an item at a time.  It belongs to one thread while it is built.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

class TDecision {
 public:
  // Each takes its values off the stack and leaves its own there.  The caller sees to it that they are there, and
  // that in the end just one is left.
  void Ask(uint32_t question);
  void PutFalse();
  void Not();
  void And();
  void Or();
  // After the last item.
  void Finish();

  size_t Questions() const { return nodes.size(); }

  // The expression's value, where `answer(question)` tells whether a question is answered with yes.  The right
  // operand comes first: the last of a long row decides most often.
  template <typename TAnswer>
  bool Evaluate(const TAnswer& answer) const {
    uint32_t at = start;
    while (at < kNo) at = answer(nodes[at].question) ? nodes[at].next[kIfYes] : nodes[at].next[kIfNo];
    return at == kYes;
  }

 private:
  static constexpr uint32_t kYes = 0xFFFFFFFF;  // the two ends; also the start of a part that is always so
  static constexpr uint32_t kNo = 0xFFFFFFFE;
  static constexpr uint32_t kIfYes = 0, kIfNo = 1;

  struct TNode {
    uint32_t question;
    uint32_t next[2];
  };
  // A part of the expression.  Its open ends are the places in `nodes` that are to be told where to go on; while
  // they are open, each names another of its list, in a ring.  A part that asks anything has ends of both kinds.
  struct TPart {
    uint32_t start;
    uint32_t ends[2];  // any one of each ring: node * 2 + kind

    bool IsConstant() const { return start >= kNo; }
  };

  uint32_t& Next(uint32_t end) { return nodes[end / 2].next[end % 2]; }
  void Join(uint32_t neutral, uint32_t kind);
  void Lead(uint32_t ring, uint32_t target);

  std::vector<TNode> nodes;
  std::vector<TPart> parts;
  uint32_t start = kNo;
};
