// What is wrong with an agent's configuration file, or probably not meant so.
#pragma once

#include <string>
#include <vector>

#include "client/failures.h"

struct TFinding {
  int line = 0;  // 0: the file as a whole
  bool fatal = false;
  std::string text;
};

// Reads the file with the agent's own rules and looks at what it names.  False when it cannot be read.
bool CheckConfig(const std::string& path, std::vector<TFinding>& findings, TFailure& failure);
