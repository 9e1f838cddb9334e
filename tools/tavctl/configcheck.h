// What is wrong with an agent's configuration file, or probably not meant so.
#pragma once

#include <string>
#include <vector>

#include "client/failures.h"

struct TFinding {
  int line = 1;  // 1, too, for what no line holds
  bool fatal = false;
  std::string text;
};

// Reads the file with the agent's own rules and looks at what it names; findings come in the order of their lines.
// `port` is what the agent would listen on.  False when the file cannot be read.
bool CheckConfig(const std::string& path, std::vector<TFinding>& findings, int& port, TFailure& failure);
