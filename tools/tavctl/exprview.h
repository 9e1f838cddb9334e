// A search expression explained, with the agent's own parser.  No I/O.
#pragma once

#include <string>

struct TExprView {
  bool valid = false;
  std::string grouping;  // every operator with its operands in parentheses
  std::string fault;     // why it is not valid
  size_t faultAt = 0;    // where, in bytes from the expression's start
};

TExprView ViewExpression(const std::string& expression);
