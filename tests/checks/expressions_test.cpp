#include "checks/expressions.h"

#include <gtest/gtest.h>

#include "checks/linefilter.h"
#include "tests/checks/replies.h"

static std::mt19937 rng(6);

static int Filtered(const String& line, const String& text, int expression, int caseSensitive, int wholeWord) {
  return TLineFilter(text, expression, caseSensitive, wholeWord).Search(line.Data(), line.Length());
}

// What the Polish notation is worth on the line, malformed expressions included.
static int Evaluated(const String& line, String text, int caseSensitive, int wholeWord) {
  TExprParser parser(PriorityTable1, sizeof(PriorityTable1));
  if (!parser.Expr2Polish(text, 0)) return 0;
  std::vector<bool> values;
  for (int i = 0; i < parser.Output().Count(); i++) {
    const String token = parser.Output()[i];
    const size_t takes = token == "not" ? 1 : token == "and" || token == "or" ? 2 : 0;
    if (takes > values.size()) return 0;
    const bool last = takes > 0 && values.back();
    if (takes == 0) values.push_back(line.Search(token.Copy(2, token.Length() - 2), caseSensitive, wholeWord) > 0);
    if (takes == 2) values.pop_back();
    if (takes > 0)
      values.back() = takes == 1 ? !last : token == "and" ? values.back() && last : values.back() || last;
  }
  return values.size() == 1 && values[0];
}

TEST(ExprParser, ConvertsToPolishNotationOrSaysWhyNot) {
  const std::pair<const char*, const char*> rows[] = {
      {"\xC3 'a' And 12or\"and\"\t", " 'a' 12 and \"and\" or"},
      {"('a' or", " 'a' or ("},  // an open group is not reported
      {"error", "Unknown operator: \"err\""},
      {"12\tOR 'a'", "Unknown operator: \"12\tOR\""},  // only a blank ends a word
      {"'a')", "Missing \"(\""},
      {"'a' or 'bc ", "Unterminated string: 'bc"},
  };
  for (const auto& [text, expected] : rows) {
    TExprParser parser(PriorityTable1, sizeof(PriorityTable1));
    String rest = text, result;
    if (!parser.Expr2Polish(rest, 0)) result = parser.Error();
    for (int i = 0; parser.Error() == "" && i < parser.Output().Count(); i++)
      result += String(" ") + parser.Output()[i];
    EXPECT_STREQ(expected, result.CStr());
  }
}

TEST(SearchForExpression, KeepsItsOddities) {  // a number loses two digits, an open group is an operand
  for (const char* text : {"123", "not ''", "not (", "'2' or (", "'AN'and'error'"})
    EXPECT_EQ(1, SearchForExpression("an error 2", text, 0, 1)) << text;
  for (const char* text : {"", "1", "''", "'2' 'error'", "and", "'erro'"})
    EXPECT_EQ(0, SearchForExpression("an error 2", text, 0, 1)) << text;
}

TEST(SearchForExpression, AgreesWithPlainEvaluators) {
  for (int i = 0; i < 20000; i++) {
    std::string text = RandomText(rng, 12, "'a'\"b'not and or()12 \tNOT\x80");
    for (int n = i % 8 ? 0 : 60; n > 0; n--) {  // so many that they are looked for together
      text = "'" + RandomText(rng, 3, "abAB.") + "'" + (rng() % 3 ? " or " : " and ") + text;
      if (rng() % 9 == 0) text = (rng() % 2 ? "(" : "not(") + text + ")";
    }
    const String line = Bytes(RandomText(rng, i % 9 ? 6 : 40, "ab AB.")), expr = Bytes(text);
    const String word = Bytes(RandomText(rng, 3, "abB."));
    const int cs = rng() % 2, ww = rng() % 2;
    EXPECT_EQ(Evaluated(line, expr, cs, ww), SearchForExpression(line, expr, cs, ww))
        << line.CStr() << ": " << text;
    EXPECT_EQ(line.Search(word, cs, ww), Filtered(line, word, 0, cs, ww)) << line.CStr() << ": " << word.CStr();
  }
}

TEST(LineFilter, TakesMegabytesOfExpressionInLinearTime) {
  for (const std::string piece : {"(", "1or", "not'", "'a'", "'a' or(", "x "}) {
    std::string text;
    while (text.size() < 3000000) text += piece;
    EXPECT_EQ(0, Filtered("b", Bytes(text), 1, 1, 0)) << piece;
  }
}
