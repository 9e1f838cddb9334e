// Runs the built client against an agent of its own, the way a shell would.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/e2e/agent_fixture.h"
#include "tests/scratch.h"

using testing::HasSubstr;
using testing::Not;

struct Ran {
  int status = -1;
  std::string out, err;
};

// A line for the client, the status that it must end with, and a text that it must print then.
struct Asked {
  std::string line;
  int status;
  std::string says = "";
};

class Tavctl : public testing::Test {
 protected:
  Tavctl() { WriteSecret("pw", agent.password + "\n"); }
  void WriteSecret(const std::string& file, const std::string& content) const;  // that its owner alone may read
  // `line` is shell text; "@" is the agent's folder.  Host, port and password are given as options; `before` is put
  // in front of the program, "@" in it likewise.
  Ran Run(const std::string& line, const std::string& before = "") const;
  // Without any of the options.
  Ran RunBare(const std::string& line, const std::string& before = "") const;
  void Expect(const std::vector<Asked>& rows) const;

  Agent agent;  // not started
};

std::vector<std::string> LinesOf(const std::string& text);
