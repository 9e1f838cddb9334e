// Runs the built client against an agent of its own, the way a shell would.
#pragma once

#include <string>

#include "tests/e2e/agent_fixture.h"

struct Ran {
  int status = -1;
  std::string out, err;
};

class Client {
 public:
  explicit Client(const Agent& agent);
  // `line` is shell text; "@" is the agent's folder.  Host, port and password are given as options.
  Ran Run(const std::string& line, const std::string& before = "") const;
  // Without any of them; `before` is put in front of the program, "@" in it likewise.
  Ran RunBare(const std::string& line, const std::string& before = "") const;

 private:
  const Agent& agent;
};
