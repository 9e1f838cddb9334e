// Where the password comes from.  It is never taken from the command line, never shown, and wiped after use.
#pragma once

#include <sys/stat.h>

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

// Who asks the user, where there is one; see FindPassword.
using TAskForPassword = bool (*)(String& password, TFailure& failure);

// Looks in this order: the password file, the agent's configuration, the file that TAV_PASSWORD_FILE names,
// tav-password in CREDENTIALS_DIRECTORY, TAV_PASSWORD, which is wiped, and last it asks.
bool FindPassword(const TSecretSources& sources, TAskForPassword ask, String& password, TFailure& failure);

// Why somebody else may know or set what is in a file that holds a password; empty when its rights are in order.
// Its group may read it when we belong to that group, and a pipe is as good as a file.
std::string RightsFault(const struct stat& info, const std::string& path);

// Reads the first line of a file or a pipe whose rights are in order.  Waits ten seconds for a pipe's writer.
bool ReadSecretFile(const std::string& path, String& secret, TFailure& failure);
// The first line that `fd` gives, called `from` in the failures.
bool ReadSecretLine(int fd, const std::string& from, String& secret, TFailure& failure);

// Reads port, host and, when `password` is not null, the password with the agent's own rules.
bool ReadAgentConfig(const std::string& path, TAgentConfig& config, String* password, TFailure& failure);
