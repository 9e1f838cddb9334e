// A filter for the lines of a text: a plain text, or a search expression that is parsed once for all lines.
//
// A filter belongs to one thread.
#pragma once

#include <string>

#include "core/zostring.h"

// A text or an expression made ready to be looked for in many lines.  Its memory is about that of the text,
// whatever the expression; a line costs time in proportion to its length and the number of operands.
class TLineFilter {
 public:
  TLineFilter(const String& text, int expression, int casesensitive, int wholeword);

  // For a plain text what String::Search gives, the 1-based position or 0; for an expression what
  // SearchForExpression gives, 1 or 0.
  int Search(const char* line, int length);

 private:
  void Compile(const String& text);
  bool Add(const char* token, int length);
  int Find(const char* line, int length, const char* text, int textLength) const;
  int Evaluate(const char* line, int length) const;

  int isExpression;
  int caseSensitive;
  int wholeWord;
  std::string program;  // the plain text, or the compiled expression; empty: matches nothing
  int depth = 0;        // values on the stack after the program so far
  int maxDepth = 0;
  std::string lowered;  // the line at hand in lower case
};
