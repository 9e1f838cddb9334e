// Who may talk to the agent: the connection filter with its loose match.
#include <gtest/gtest.h>

#include "agent_fixture.h"

namespace {

TEST(Filter, AdmitsWhatOccursInTheMarkedAddresses) {
  const struct {
    const char* settings;
    std::vector<std::string> in, out;  // the last byte of 127.0.0.x
  } rows[] = {{"filterlist=127.0.0.1\nfiltermarks=1\n", {"1"}, {"2", "12"}},
              {"filterlist=127.0.0.12 127.0.0.3\nfiltermarks=11\n", {"12", "1", "3"}, {"2", "30"}},
              {"filterlist=127.0.0.2%0D%0A127.0.0.3\nfiltermarks=01\n", {"3"}, {"2"}},
              {"filterlist=127.0.0.2\nfiltermarks=011\n", {}, {"2", "1"}},
              {"filterlist=\nfiltermarks=1\n", {}, {"1"}}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.settings);
    const Agent agent(std::string("filteractive=1\n") + row.settings);
    for (const std::string& x : row.out) EXPECT_EQ("closed", agent.Ask("GetInfo", "127.0.0." + x)) << x;
    EXPECT_TRUE(WaitFor([&] { return agent.Count("TCP connection rejected\n") == row.out.size(); }));
    const std::string failed = "\nFailedConnections=" + std::to_string(row.out.size()) + "\n";
    for (const std::string& x : row.in)
      EXPECT_NE(std::string::npos, agent.Ask("GetInfo", "127.0.0." + x).find(failed)) << x;
  }
}

}  // namespace
