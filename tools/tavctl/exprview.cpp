#include "tavctl/exprview.h"

#include <string.h>

#include <vector>

#include "checks/expressions.h"
#include "client/text.h"
#include "core/memsearch.h"
#include "core/strlist.h"

namespace {

struct TToken {
  std::string text;
  size_t at;
};

// Cuts the tokens with the parser's own scissors and notes where each stood.  Stops at a string without an end.
std::vector<TToken> Tokens(TExprParser& parser, const std::string& expression) {
  std::vector<TToken> tokens;
  String rest(expression.data(), static_cast<int>(expression.size()));
  rest.Trim();
  const size_t lead = expression.find(Bytes(rest));
  const int whole = rest.Length();
  while (rest.Trim().Length() > 0) {
    const size_t at = lead + static_cast<size_t>(whole - rest.Length());
    const std::string token = Bytes(parser.GetToken(rest));
    tokens.push_back({token, at});
    if (token.empty()) break;
  }
  return tokens;
}

bool IsOperand(const TExprParser& parser, const std::string& token) {
  return parser.TokenInPriority(ToString(token)) == -1;
}

bool IsGoodOperand(const std::string& token) {
  return token.empty() || token[0] == '"' || token[0] == '\'' || isdecimalnum(token.c_str());
}

size_t FaultPlace(TExprParser& parser, const std::string& expression) {
  int open = 0;
  for (const TToken& token : Tokens(parser, expression)) {
    if (token.text.empty()) return token.at;
    if (IsOperand(parser, token.text) && !IsGoodOperand(token.text)) return token.at;
    open += token.text == "(" ? 1 : token.text == ")" ? -1 : 0;
    if (open < 0) return token.at;
  }
  return 0;
}

bool Invalid(TExprView& view, const std::string& why, size_t at) {
  view.valid = false;
  view.fault = why;
  view.faultAt = at;
  return false;
}

// Puts the Polish notation back together; what the agent would evaluate to nothing is told as a fault.
bool Group(const TStrList& polish, size_t end, TExprView& view) {
  std::vector<std::string> stack;
  for (int i = 0; i < polish.Count(); ++i) {
    const std::string token = Bytes(polish[i]);
    const size_t needed = token == "not" ? 1 : token == "and" || token == "or" ? 2 : 0;
    if (token == "(") return Invalid(view, "a '(' is never closed", end);
    if (stack.size() < needed) return Invalid(view, "'" + token + "' lacks an operand", end);
    if (needed == 0) {
      stack.push_back(token);
    } else if (needed == 1) {
      stack.back() = "(not " + stack.back() + ")";
    } else {
      const std::string right = stack.back();
      stack.pop_back();
      stack.back() = "(" + stack.back() + " " + token + " " + right + ")";
    }
  }
  if (stack.empty()) return Invalid(view, "the expression is empty", end);
  if (stack.size() > 1) return Invalid(view, "two strings stand side by side without 'and' or 'or'", end);
  const std::string& all = stack[0];
  view.grouping = all[0] == '(' ? all.substr(1, all.size() - 2) : all;
  return true;
}

}  // namespace

TExprView ViewExpression(const std::string& expression) {
  TExprView view;
  TExprParser parser(PriorityTable1, sizeof PriorityTable1);
  String consumed(expression.data(), static_cast<int>(expression.size()));
  view.valid = true;
  if (parser.Expr2Polish(consumed, 0)) {
    Group(parser.Output(), expression.size(), view);
    return view;
  }
  const std::string why = Bytes(parser.Error());
  TExprParser scissors(PriorityTable1, sizeof PriorityTable1);
  Invalid(view, why, FaultPlace(scissors, expression));
  return view;
}
