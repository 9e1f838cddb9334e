// The filter and a plain reading of the language agree on every line.
//
//   input := flags LF expression LF line      flags: 1 case-sensitive, 2 whole words
#include "checks/expressions.h"
#include "checks/linefilter.h"
#include "fuzz/law.h"

static bool Satisfies(const String& line, String text, int caseSensitive, int wholeWord) {
  TExprParser parser(PriorityTable1, sizeof(PriorityTable1));  // only cuts the tokens
  std::vector<String> waiting;
  std::vector<bool> values;
  bool good = true;
  const auto apply = [&] {
    const String name = waiting.back();
    waiting.pop_back();
    if (name == "(") return values.push_back(false);  // left open: an operand that is never found
    if (!(good = good && values.size() >= (name == "not" ? 1u : 2u))) return;
    const bool last = values.back();
    if (name == "not") return void(values.back() = !last);
    values.pop_back();
    values.back() = name == "and" ? values.back() && last : values.back() || last;
  };
  for (String token; (token = parser.GetToken(text)).Length() > 0;) {
    String name = token;
    name.LowerCase();
    if (parser.TokenInPriority(token) < 0) {
      good = good &&
             (token[1] == '\'' || token[1] == '"' || Std(token).find_first_not_of("0123456789-") == Std("").npos);
      values.push_back(line.Search(token.Copy(2, token.Length() - 2), caseSensitive, wholeWord) > 0);
      continue;
    }
    const bool opens = name == "(" || name == "not";
    while (!opens && !waiting.empty() && (waiting.back() == "and" || waiting.back() == "or")) apply();
    while (name == ")" && !waiting.empty() && waiting.back() != "(") apply();
    if (name != ")")
      waiting.push_back(name);
    else if (waiting.empty())
      return false;
    else
      waiting.pop_back();
  }
  while (!waiting.empty()) apply();
  return good && parser.Error() == "" && values.size() == 1 && values[0];
}

TAV_LAWS(expression)(std::string input) {
  const std::string flags = Cut(input, '\n'), text = Cut(input, '\n');
  const int sensitive = flags.find('1') != std::string::npos, words = flags.find('2') != std::string::npos;
  const String line = Bytes(input), expression = Bytes(text);
  const int expected = Satisfies(line, expression, sensitive, words);
  TLineFilter plain(expression, 0, sensitive, words);
  Require(SearchForExpression(line, expression, sensitive, words) == expected);
  Require(plain.Search(line.Data(), line.Length()) == line.Search(expression, sensitive, words));
}
