// Search expressions: small boolean expressions over quoted strings that pick lines out of a text, such as
//
//   'error' and not 'timeout'
//
// An operand is a quoted string (either quote, no escape) that is looked for in the line, or a bare number, which
// is looked for without its first and its last digit.  `and` and `or` bind alike and run from left to right; `not`
// takes everything behind it up to the end of its parenthesised group.  Blanks are needed nowhere: operator names
// cut the words they stand in.  What the conversion lets through is evaluated as it comes out.
//
// The tables are constants.  The objects here belong to one thread; any number of threads may have their own.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "core/strlist.h"
#include "core/zostring.h"

struct TPriorityItem {
  const char* name;   // lower case
  int inPriority;     // of the operator that arrives
  int stackPriority;  // of the operator that waits on the stack
};

// Names are tried in this order when tokens are cut.
inline constexpr TPriorityItem PriorityTable1[] = {
    {"(", 65535, 0}, {"not", 65535, 0}, {")", 1, 65520}, {"and", 1, 1}, {"or", 1, 1},
};
// With comparisons and integer operators; the longer comparisons stand before their first characters.
inline constexpr TPriorityItem PriorityTable2[] = {
    {"(", 65535, 0}, {"not", 65535, 0}, {")", 1, 65520}, {"and", 1, 1}, {"or", 1, 1},  {"<>", 2, 2},  {"<=", 2, 2},
    {">=", 2, 2},    {"==", 2, 2},      {">", 2, 2},     {"<", 2, 2},   {"div", 4, 4}, {"mod", 4, 4},
};

class TExprParser {
 public:
  // The table must outlive the parser and has at most 255 rows.
  TExprParser(const TPriorityItem* rowsOfTable, int tablebytes)
      : table(rowsOfTable), rows(tablebytes / static_cast<int>(sizeof(TPriorityItem))) {}

  // Priorities of a token, letter case ignored; -1 when it is no operator.
  int TokenInPriority(String token) const;
  int TokenSPriority(String token) const;
  // Index of the first row whose name stands in `text` at the 1-based `pos`, letter case observed; or -1.
  int TokenInPos(const String& text, int pos) const;
  // Cuts the next token off the front.  Empty at the end of the text, and for a string without an end: then Error()
  // is set.
  String GetToken(String& text);
  // Consumes `expr` and leaves it in Polish notation in Output(), a token an item.  Returns 1, or 0 with the reason
  // in Error().  With `checkonly` the output is not touched.
  int Expr2Polish(String& expr, int checkonly);

  // The conversion itself, linear in the text's length: hands each token of the Polish notation to `emit`.  Returns
  // as Expr2Polish; `used` is the number of bytes consumed.
  using TEmit = std::function<void(const char* token, int length)>;
  int Convert(const char* text, int length, int& used, const TEmit& emit);

  const TStrList& Output() const { return output; }
  const String& Error() const { return error; }

 private:
  int RowNamed(const char* token, int length) const;
  int RowAt(const char* text, const char* end) const;
  int CutToken(const char*& cursor, const char* end, const char*& token);
  int PutOperator(int row, std::string& waiting, const TEmit& emit);
  int PutToken(const char* token, int length, std::string& waiting, const TEmit& emit);

  const TPriorityItem* table;
  int rows;
  TStrList output;
  String error;
};

// A stack of truth values with a fixed capacity.  Overflow and underflow set Error(), which stays set.
class BoolStack {
 public:
  explicit BoolStack(int values);

  void Push(bool value);  // dropped when full
  bool Pop();             // false when empty
  void Not();
  void Or();  // these two change nothing with fewer than two values
  void And();
  int Count() const { return static_cast<int>(count); }
  int Error() const { return error; }

 private:
  std::unique_ptr<bool[]> buffer;
  std::size_t count = 0;
  std::size_t capacity;
  int error = 0;
};
