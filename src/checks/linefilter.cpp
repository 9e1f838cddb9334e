#include "checks/linefilter.h"

#include "checks/expressions.h"
#include "checks/textsearch.h"
#include "core/memsearch.h"

namespace {

// So many operands are looked for one by one, as the decision asks for them.
constexpr size_t kFewOperands = 16;

// A copy of a line that is longer than this is not kept for the next one.
constexpr size_t kKeptLine = 1024 * 1024;

// Calls `emit` for each token of the expression's Polish notation; false when it is malformed.
bool ForEachToken(const String& text, const TExprParser::TEmit& emit) {
  TExprParser parser(PriorityTable1, sizeof(PriorityTable1));
  int used = 0;
  return parser.Convert(text.Data(), text.Length(), used, emit) != 0;
}

bool IsNot(const char* token) {
  return *token == 'n';
}

bool IsAndOr(const char* token) {
  return *token == 'a' || *token == 'o';
}

// Whether operators find their operands does not depend on the line: an expression that runs the stack empty, or
// leaves more than one value, matches no line at all, and is told before it takes memory for its texts.  `none` is
// what it is worth in a line that holds none of them.
bool IsEvaluable(const String& text, bool& none) {
  BoolStack stack(text.Length());  // no value without a byte of the text
  const bool converted = ForEachToken(text, [&](const char* token, int) {
    if (IsNot(token)) return stack.Not();
    if (IsAndOr(token)) return *token == 'a' ? stack.And() : stack.Or();
    stack.Push(false);
  });
  const bool good = converted && !stack.Error() && stack.Count() == 1;
  none = good && stack.Pop();
  return good;
}

}  // namespace

TLineFilter::TLineFilter(const String& text, int expression, int casesensitive, int wholeword)
    : isExpression(expression == 1), caseSensitive(casesensitive != 0), wholeWord(wholeword != 0) {
  if (text.Length() == 0) return;
  if (isExpression) {
    Compile(text);
    return;
  }
  never = false;
  plain.assign(text.Data(), static_cast<size_t>(text.Length()));
  if (!caseSensitive) strlower(plain.data(), text.Length());
  necessary.push_back(plain);
}

void TLineFilter::Compile(const String& text) {
  if (!IsEvaluable(text, noneDecides)) return;
  TNecessaryTexts needed;
  (void)ForEachToken(text, [&](const char* token, int length) { Add(token, length, needed); });
  necessaryKnown = needed.Known();
  if (necessaryKnown) necessary = needed.Texts();
  for (std::string& one : necessary) {
    if (!caseSensitive) strlower(one.data(), static_cast<int>(one.size()));
  }
  texts.Prepare();
  decision.Finish();
  never = false;
  together = decision.Questions() > kFewOperands;
}

void TLineFilter::Add(const char* token, int length, TNecessaryTexts& needed) {
  if (IsNot(token)) return decision.Not(), needed.Not();
  if (IsAndOr(token)) return *token == 'a' ? (decision.And(), needed.And()) : (decision.Or(), needed.Or());
  if (length <= 2) return decision.PutFalse(), needed.PutFalse();  // nothing is found nowhere

  const auto inner = static_cast<size_t>(length - 2);
  needed.Ask(token + 1, inner);
  if (caseSensitive) return decision.Ask(texts.Add(token + 1, inner));
  lowered.assign(token + 1, inner);
  strlower(lowered.data(), length - 2);
  decision.Ask(texts.Add(lowered.data(), inner));
}

int TLineFilter::Find(const char* line, size_t length) const {
  if (plain.size() > length) return 0;
  TTextFinder finder(plain.data(), plain.size());
  const char* hit = wholeWord ? finder.FirstWord(line, line + length) : finder.First(line, line + length);
  return hit ? static_cast<int>(hit - line) + 1 : 0;
}

bool TLineFilter::Evaluate(const char* line, size_t length) {
  if (!together)
    return decision.Evaluate([&](uint32_t text) { return texts.FindOne(text, line, length, wholeWord); });
  if (!texts.FindAll(line, length, wholeWord)) return noneDecides;
  return decision.Evaluate([&](uint32_t text) { return texts.Has(text); });
}

int TLineFilter::Search(const char* line, int length) {
  if (never || length < 0) return 0;
  const auto size = static_cast<size_t>(length);
  if (!caseSensitive && length > 0) {
    lowered.assign(line, size);
    strlower(lowered.data(), length);
    line = lowered.data();
  }
  const int result = isExpression ? Evaluate(line, size) : Find(line, size);
  if (lowered.capacity() > kKeptLine) lowered = std::string();
  return result;
}

int SearchForExpression(const String& line, const String& expr, int casesensitive, int wholeword) {
  return TLineFilter(expr, 1, casesensitive, wholeword).Search(line.Data(), line.Length());
}
