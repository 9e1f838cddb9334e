// What a configuration that an agent takes may still cost.
#pragma once

#include <string>
#include <vector>

#include "config/settings.h"

struct TRisk {
  const char* key;  // the one to look at
  std::string text;
};

// Looks at this host's addresses and files; changes nothing.
std::vector<TRisk> FindRisks(const TTAVSettings& settings);
