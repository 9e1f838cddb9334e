// What a line must hold for a filter to match it: a few texts, of which one has to be there.
#pragma once

#include <string>
#include <vector>

// Worked out from the Polish notation of an expression, an item at a time.  It belongs to one thread.
class TNecessaryTexts {
 public:
  // Like the items of TDecision.  A text outlives the object.
  void Ask(const char* text, size_t length);
  void PutFalse();
  void Not();
  void And();
  void Or();

  // After the last item.  False when nothing is known: any line may match.  No text at all: no line matches.
  bool Known() const { return !tooDeep && waiting.size() == 1 && waiting.back().known; }
  std::vector<std::string> Texts() const;

 private:
  static constexpr size_t kMost = 3;      // texts of an alternative; each is looked for by itself
  static constexpr size_t kDeepest = 64;  // values that wait; what is nested deeper is not known

  struct TText {
    const char* bytes;
    size_t length;
  };
  // That a part of the expression is true means that one of these stands in the line.
  struct TPart {
    bool known;
    size_t count;
    TText texts[kMost];
  };
  void Push(const TPart& part);
  static bool IsBetter(const TPart& a, const TPart& b);

  std::vector<TPart> waiting;
  bool tooDeep = false;
};
