#include "checks/linefilter.h"

#include <string.h>

#include <algorithm>

#include "checks/expressions.h"
#include "checks/textsearch.h"

namespace {

// A compiled expression is its Polish notation without blanks: operands in quotes as they were written, the
// operators and an operand that is never found as one byte each.  It is never longer than the expression.
constexpr char kNot = '!';
constexpr char kAnd = '&';
constexpr char kOr = '|';
constexpr char kFalse = '0';

// A copy of a line that is longer than this is not kept for the next one.
constexpr size_t kKeptLine = 1024 * 1024;

}  // namespace

TLineFilter::TLineFilter(const String& text, int expression, int casesensitive, int wholeword)
    : isExpression(expression == 1), caseSensitive(casesensitive), wholeWord(wholeword) {
  if (text.Length() == 0) return;
  if (isExpression)
    Compile(text);
  else
    program.assign(text.Data(), static_cast<size_t>(text.Length()));
  if (!caseSensitive) strlower(program.data(), static_cast<int>(program.size()));
}

// Whether operators find their operands does not depend on the line: an expression that runs the stack empty, or
// leaves more than one value, matches no line at all.
void TLineFilter::Compile(const String& text) {
  TExprParser parser(PriorityTable1, sizeof(PriorityTable1));
  program.reserve(static_cast<size_t>(text.Length()));
  bool good = true;
  int used = 0;
  const int converted = parser.Convert(text.Data(), text.Length(), used,
                                       [&](const char* token, int length) { good = good && Add(token, length); });
  if (!converted || !good || depth != 1) program = std::string();
}

// False when the token finds too few values on the stack.
bool TLineFilter::Add(const char* token, int length) {
  if (*token == 'n') {
    program += kNot;
    return depth >= 1;
  }
  if (*token == 'a' || *token == 'o') {
    program += *token == 'a' ? kAnd : kOr;
    return --depth >= 1;
  }

  maxDepth = std::max(maxDepth, ++depth);
  const auto inner = static_cast<size_t>(std::max(length - 2, 0));
  if (inner == 0)
    program += kFalse;
  else if ((*token == '"' || *token == '\''))
    program.append(token, inner + 2);
  else
    program.append(1, '"').append(token + 1, inner).append(1, '"');
  return true;
}

int TLineFilter::Find(const char* line, int length, const char* text, int textLength) const {
  if (textLength > length) return 0;
  TTextFinder finder(text, static_cast<size_t>(textLength));
  const char* hit = wholeWord ? finder.FirstWord(line, line + length) : finder.First(line, line + length);
  return hit ? static_cast<int>(hit - line) + 1 : 0;
}

int TLineFilter::Evaluate(const char* line, int length) const {
  BoolStack stack(maxDepth);
  const char* end = program.data() + program.size();
  for (const char* op = program.data(); op < end; op++) {
    if (*op == kNot)
      stack.Not();
    else if (*op == kAnd)
      stack.And();
    else if (*op == kOr)
      stack.Or();
    else if (*op == kFalse)
      stack.Push(false);
    else {
      const char* close = static_cast<const char*>(memchr(op + 1, *op, static_cast<size_t>(end - op - 1)));
      stack.Push(Find(line, length, op + 1, static_cast<int>(close - op - 1)) > 0);
      op = close;
    }
  }
  return stack.Pop();
}

int TLineFilter::Search(const char* line, int length) {
  if (program.empty()) return 0;
  if (!caseSensitive && length > 0) {
    lowered.assign(line, static_cast<size_t>(length));
    strlower(lowered.data(), length);
    line = lowered.data();
  }
  const int result =
      isExpression ? Evaluate(line, length) : Find(line, length, program.data(), static_cast<int>(program.size()));
  if (lowered.capacity() > kKeptLine) lowered = std::string();
  return result;
}
