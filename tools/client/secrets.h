// Where the password comes from.  It is never taken from the command line, never shown, and wiped after use.
#pragma once

#include <string>

#include "client/failures.h"
#include "core/zostring.h"

struct TSecretSources {
  std::string passwordFile;  // "-": standard input
  std::string agentConfig;   // the agent's own file
};

// What the agent's own configuration file says of it.
struct TAgentConfig {
  std::string host;
  int port = 0;
};

// Looks in this order: the password file, the agent's configuration, the file that TAV_PASSWORD_FILE names,
// tav-password in CREDENTIALS_DIRECTORY, TAV_PASSWORD, and last a prompt on the terminal.
bool FindPassword(const TSecretSources& sources, String& password, TFailure& failure);

// Reads the first line of a file.  One that its group or others may read is refused.
bool ReadSecretFile(const std::string& path, String& secret, TFailure& failure);

// Reads port, host and, when `password` is not null, the password with the agent's own rules.
bool ReadAgentConfig(const std::string& path, TAgentConfig& config, String* password, TFailure& failure);
