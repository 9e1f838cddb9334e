// A filter for the lines of a text: a plain text, or a search expression that is parsed once for all lines.
//
// A filter belongs to one thread.
#pragma once

#include <string>
#include <vector>

#include "checks/decision.h"
#include "checks/necessary.h"
#include "checks/textset.h"
#include "core/zostring.h"

// A text or an expression made ready to be looked for in many lines.  Its memory is in proportion to the text,
// whatever the expression.  The texts of a long expression are looked for together, so that a line in which none of
// them stands costs time in proportion to its length alone.
class TLineFilter {
 public:
  TLineFilter(const String& text, int expression, int casesensitive, int wholeword);

  // For a plain text what String::Search gives, the 1-based position or 0; for an expression what
  // SearchForExpression gives, 1 or 0.
  int Search(const char* line, int length);

  // Texts, in lower case where case is ignored, of which one stands in each line that matches; none when no line
  // can. They are not known for every filter.
  bool HasNecessary() const { return necessaryKnown; }
  const std::vector<std::string>& Necessary() const { return necessary; }
  bool CaseSensitive() const { return caseSensitive; }

 private:
  void Compile(const String& text);
  void Add(const char* token, int length, TNecessaryTexts& needed);
  int Find(const char* line, size_t length) const;
  bool Evaluate(const char* line, size_t length);

  bool isExpression;
  bool caseSensitive;
  bool wholeWord;
  bool never = true;         // matches no line at all
  std::string plain;         // the text that is no expression
  TTextSet texts;            // the operands
  TDecision decision;        // what they are worth together
  bool together = false;     // all operands are looked for before the decision
  bool noneDecides = false;  // what the decision is when none of them is there
  bool necessaryKnown = true;
  std::vector<std::string> necessary;
  std::string lowered;  // the line or the operand at hand in lower case
};

// 1 when the line satisfies the expression; 0 when it does not, or the expression is malformed.  Parses it anew on
// every call: many lines take a filter.
int SearchForExpression(const String& line, const String& expr, int casesensitive, int wholeword);
