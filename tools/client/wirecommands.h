// The commands of the wire as the client speaks of them: which of the agent's settings switches each on.
#pragma once

#include <string>
#include <vector>

struct TWireCommand {
  const char* name;
  const char* setting;    // first key in the configuration file; null: always on, or never there on this platform
  const char* addresses;  // key of the list of addresses that may use it; null: everyone
};

const std::vector<TWireCommand>& WireCommands();
const TWireCommand* FindWireCommand(const std::string& name);  // null: no such command
