// The command line: global options, the command and its arguments.
#pragma once

#include <string>

#include "client/secrets.h"
#include "tavctl/commands.h"

inline constexpr int kDefaultPort = 1055;
inline constexpr long long kDefaultDeadlineMs = 300000;

struct TOptions {
  std::string host;  // empty: not given
  int port = 0;      // 0: not given
  long long timeoutMs = 10000;
  long long deadlineMs = 0;  // 0: not given
  TSecretSources secrets;
  std::string hostsFile;
  int jobs = 8;
  TFormat format = TFormat::kTable;
  bool noColour = false;
  bool quiet = false;
  bool verbose = false;
};

struct TInvocation {
  TOptions options;
  const TCommandRow* row = nullptr;  // null: help or the version was shown, nothing is left to do
  TArgs args;
};

// The one table of what may stand with every command.
const std::vector<TArgRow>& GlobalOptions();

// False with a failure.  Prints help and version itself.
bool ParseCommandLine(int argc, char** argv, TInvocation& invocation, TFailure& failure);
