#include "checks/expressions.h"
#include "core/memsearch.h"

#include <string.h>

#include <algorithm>

namespace {

// What String::Trim drops: the comparison is signed.
bool IsTrimmed(char c) {
  return static_cast<signed char>(c) <= 32;
}

bool IsQuote(char c) {
  return c == '"' || c == '\'';
}

bool IsNumber(const char* s, int n) {
  return std::all_of(s, s + n, [](char c) { return (c >= '0' && c <= '9') || c == '-'; });
}

}  // namespace

int TExprParser::RowNamed(const char* token, int length) const {
  for (int i = 0; i < rows; i++) {
    const char* name = table[i].name;
    if (strlen(name) == static_cast<size_t>(length) &&
        std::equal(token, token + length, name, [](char a, char b) { return LoCase(a) == b; }))
      return i;
  }
  return -1;
}

int TExprParser::RowAt(const char* text, const char* end) const {
  for (int i = 0; i < rows; i++) {
    const size_t n = strlen(table[i].name);
    if (n <= static_cast<size_t>(end - text) && memcmp(text, table[i].name, n) == 0) return i;
  }
  return -1;
}

int TExprParser::TokenInPriority(String token) const {
  const int row = RowNamed(token.Data(), token.Length());
  return row < 0 ? -1 : table[row].inPriority;
}

int TExprParser::TokenSPriority(String token) const {
  const int row = RowNamed(token.Data(), token.Length());
  return row < 0 ? -1 : table[row].stackPriority;
}

int TExprParser::TokenInPos(const String& text, int pos) const {
  if (pos < 1 || pos > text.Length()) return -1;
  return RowAt(text.Data() + pos - 1, text.Data() + text.Length());
}

// Returns the token's length and moves the cursor behind it; 0 at the end and on an error.  `end` is trimmed.
int TExprParser::CutToken(const char*& cursor, const char* end, const char*& token) {
  while (cursor < end && IsTrimmed(*cursor)) cursor++;
  if (cursor == end) return 0;

  token = cursor;
  const int row = RowAt(cursor, end);
  if (row >= 0) {
    cursor += strlen(table[row].name);
  } else if (IsQuote(*cursor)) {
    const void* close = memchr(cursor + 1, *cursor, static_cast<size_t>(end - cursor - 1));
    if (!close) {
      error = "Unterminated string: ";
      error.AddData(cursor, static_cast<int>(end - cursor));
      return 0;
    }
    cursor = static_cast<const char*>(close) + 1;
  } else {
    do cursor++;
    while (cursor < end && *cursor != ' ' && RowAt(cursor, end) < 0);
  }
  return static_cast<int>(cursor - token);
}

String TExprParser::GetToken(String& text) {
  text.Trim();
  if (text.Length() == 0) return String();

  const char* cursor = text.Data();
  const char* token = cursor;
  const int length = CutToken(cursor, cursor + text.Length(), token);
  if (length == 0) return String();

  String result(token, length);
  text.Delete(1, length);
  return result;
}

int TExprParser::PutOperator(int row, std::string& waiting, const TEmit& emit) {
  const auto pop = [&] {
    const int top = static_cast<unsigned char>(waiting.back());
    waiting.pop_back();
    return top;
  };
  const auto emitRow = [&](int i) { emit(table[i].name, static_cast<int>(strlen(table[i].name))); };

  while (!waiting.empty() &&
         table[static_cast<unsigned char>(waiting.back())].stackPriority >= table[row].inPriority)
    emitRow(pop());
  if (strcmp(table[row].name, ")") != 0) {
    waiting.push_back(static_cast<char>(row));
    return 1;
  }
  while (!waiting.empty()) {
    const int top = pop();
    if (strcmp(table[top].name, "(") == 0) return 1;
    emitRow(top);
  }
  error = "Missing \"(\"";
  return 0;
}

int TExprParser::PutToken(const char* token, int length, std::string& waiting, const TEmit& emit) {
  const int row = RowNamed(token, length);
  if (row >= 0) return PutOperator(row, waiting, emit);

  if (!IsQuote(*token) && !IsNumber(token, length)) {
    error = "Unknown operator: \"";
    error.AddData(token, length);
    error.AddChar('"');
    return 0;
  }
  emit(token, length);
  return 1;
}

int TExprParser::Convert(const char* text, int length, int& used, const TEmit& emit) {
  error = "";
  const char* cursor = text;
  const char* end = text + length;
  while (end > text && IsTrimmed(end[-1])) end--;

  std::string waiting;  // rows of the operators on the stack, a byte each: a text may open millions of groups
  const char* token = cursor;
  int tokenLength, good = 1;
  while (good && (tokenLength = CutToken(cursor, end, token)) > 0)
    good = PutToken(token, tokenLength, waiting, emit);
  used = static_cast<int>(cursor - text);
  if (!good || error.Length() > 0) return 0;

  for (; !waiting.empty(); waiting.pop_back()) {
    const char* name = table[static_cast<unsigned char>(waiting.back())].name;
    emit(name, static_cast<int>(strlen(name)));  // an open "(" too: an operand that is never found
  }
  return 1;
}

int TExprParser::Expr2Polish(String& expr, int checkonly) {
  if (!checkonly) output.Clear();
  expr.Trim();
  int used = 0;
  const int result = Convert(expr.Data(), expr.Length(), used, [&](const char* token, int length) {
    if (!checkonly) output.Add(String(token, length));
  });
  expr.Delete(1, used);
  return result;
}

BoolStack::BoolStack(int values)
    : buffer(new bool[static_cast<size_t>(values)]), capacity(static_cast<size_t>(values)) {}

void BoolStack::Push(bool value) {
  if (count >= capacity) {
    error = 1;
    return;
  }
  buffer[count++] = value;
}

bool BoolStack::Pop() {
  if (count == 0) {
    error = 1;
    return false;
  }
  return buffer[--count];
}

void BoolStack::Not() {
  if (count == 0) {
    error = 1;
    return;
  }
  buffer[count - 1] = !buffer[count - 1];
}

void BoolStack::Or() {
  if (count < 2) {
    error = 1;
    return;
  }
  const bool a = Pop(), b = Pop();
  Push(a || b);
}

void BoolStack::And() {
  if (count < 2) {
    error = 1;
    return;
  }
  const bool a = Pop(), b = Pop();
  Push(a && b);
}
