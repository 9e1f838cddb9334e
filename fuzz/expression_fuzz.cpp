// The evaluator, the filter that is parsed once, and a plain reading of the language agree on every line.
//
//   input := flags LF expression LF line      flags: 1 case-sensitive, 2 whole words
#include "checks/expressions.h"
#include "checks/linefilter.h"
#include "fuzz/law.h"

static std::string OperatorAt(const std::string& s, size_t at) {
  for (const std::string name : {"(", "not", ")", "and", "or"})
    if (s.compare(at, name.size(), name) == 0) return name;
  return "";
}

// The first token without blanks around it; empty when a string has no end.
static std::string Token(const std::string& text) {
  const std::string name = OperatorAt(text, 0);
  if (!name.empty()) return name;
  if (text[0] == '\'' || text[0] == '"') return text.substr(0, text.find(text[0], 1) + 1);
  size_t end = 1;
  while (end < text.size() && text[end] != ' ' && OperatorAt(text, end).empty()) end++;
  return text.substr(0, end);
}

static bool Satisfies(const String& line, std::string text, int caseSensitive, int wholeWord) {
  std::vector<std::string> waiting;
  std::vector<bool> values;
  bool good = true;
  const auto apply = [&] {
    const std::string name = waiting.back();
    waiting.pop_back();
    if (name == "(") return values.push_back(false);  // left open: an operand that is never found
    if (!(good = good && values.size() >= (name == "not" ? 1u : 2u))) return;
    const bool last = values.back();
    if (name == "not") return void(values.back() = !last);
    values.pop_back();
    values.back() = name == "and" ? values.back() && last : values.back() || last;
  };
  for (std::string token; !(text = Std(Str(text).Trim())).empty(); text.erase(0, token.size())) {
    if ((token = Token(text)).empty()) return false;
    std::string name = token;
    if (strlower(name.data(), int(name.size())), OperatorAt(name, 0) != name) {
      good = good && (strchr("'\"", token[0]) || token.find_first_not_of("0123456789-") == std::string::npos);
      values.push_back(line.Search(Str(token).Copy(2, int(token.size()) - 2), caseSensitive, wholeWord) > 0);
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
  return good && values.size() == 1 && values[0];
}

void Check(std::string input) {
  const std::string flags = Cut(input, '\n'), text = Cut(input, '\n');
  const int sensitive = flags.find('1') != std::string::npos, words = flags.find('2') != std::string::npos;
  const String line = Str(input), expression = Str(text);
  const int expected = Satisfies(line, text, sensitive, words);
  TLineFilter filter(expression, 1, sensitive, words), plain(expression, 0, sensitive, words);
  Require(SearchForExpression(line, expression, sensitive, words) == expected);
  Require(filter.Search(line.Data(), line.Length()) == expected);
  Require(plain.Search(line.Data(), line.Length()) == line.Search(expression, sensitive, words));
}
