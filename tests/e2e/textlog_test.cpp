// The text log test as the server sees it: the state that travels with the server, and what its parameters choose.
#include <gtest/gtest.h>

#include <sstream>

#include "agent_fixture.h"

namespace {

// The server's side of one watched file.
struct Watch {
  const Agent& agent;
  std::string file, filter = "error|0|1|0|0", state = "0|0|0", scanAll = "0";

  // The result, more, status, position and line; the state is kept for the next check.
  std::string Check() {
    const std::string reply = agent.Ask("TEST-TextLog2|" + file + "|" + state + "|" + scanAll + "|" + filter);
    std::istringstream in(reply);
    std::string code, result, line, more, position, size, age, fileSize, status;
    in >> code >> result;
    in.ignore(1);
    std::getline(in, line) >> more >> position >> size >> age >> fileSize >> status;
    if (code != "200") return reply;
    state = position + "|" + size + "|" + age;
    return result + " " + more + " " + status + " " + position + " " + line;
  }
};

TEST(TextLog, FollowsAFileThatGrowsIsCutAndIsReplaced) {
  Agent agent("");
  Watch watch{agent, "@/log.txt"};
  agent.Write("log.txt", "old error\n");
  EXPECT_EQ("0 0 0 9 ", watch.Check()) << "what was there before is never told";
  agent.Append("log.txt", "new error one\nfine\nerror two\nhalf an err");
  EXPECT_EQ("14 1 1 24 new error one", watch.Check()) << "the old line's end counts with the new line";
  EXPECT_EQ("30 0 1 39 error two", watch.Check());
  EXPECT_EQ("0 0 0 39 ", watch.Check()) << "unchanged";
  agent.Append("log.txt", "or\nERROR\n");
  EXPECT_EQ("48 0 1 59 half an error", watch.Check());
  watch.scanAll = "1";
  agent.Append("log.txt", "1st error\r\n2nd error\r\rno end error");
  EXPECT_EQ("74 0 1 80 2nd error", watch.Check());
  ASSERT_EQ(0, rename(agent.At("@/log.txt").c_str(), agent.At("@/log.1").c_str()));
  EXPECT_EQ("301\nFile does not exist", watch.Check());
  agent.Write("log.txt", "an error\n");
  EXPECT_EQ("4 0 1 9 an error", watch.Check()) << "shorter than the position: from the start";
  agent.Write("long.txt", "\n\r\n" + std::string(30000, 'x') + " error\nend\n");
  Watch whole{agent, "@/long.txt", "error|0|1|0", "0|1|1"};
  EXPECT_EQ("30002 0 1 30014 " + std::string(1024, 'x'), whole.Check());
}

TEST(TextLog, ParametersChooseTheFileAndTheFilters) {
  Agent agent("");
  agent.Write("logs/only.log", "alpha beta 12345\n");
  agent.ExpectRows("TEST-TextLog2|@/", R"(
    logs/%newestfile%|0|0|0|0|x|0|0|0|0||||||1 => ~200|     0|[-0-9| ]*@/logs/only.log
    none|0|0|0|0|x|0|0|0|0||||||1 => 301|File "none" not found
    none|0|0|0|0|x|0|0|0|1|y|0|0|0||||||1 => 301|File "none" not found
    none|0|0|0|0|x|0|0|0|1|y|0|0|0||1 => 301|File does not exist
    logs/only.log|x|0|0 => 501|Wrong parameter
    logs/only.log|0|+5|0 => 501|Wrong parameter
    logs/only.log|0|0|1 2 => 501|Wrong parameter
    logs/only.log|0|1|1|1|BETA|0|0|0 => ~200|     7|alpha[^~]*
    logs/only.log|0|1|1|1|BETA|0|1|0 => ~200|     0||[^~]*
    logs/only.log|0|1|1|1|'bet'|1|1|1 => ~200|     0||[^~]*
    logs/only.log|0|1|1|1|gamma|0|1|0|1|beta|0|1|0 => ~200|     7|alpha[^~]*|0|@[^~]*
    logs/only.log|0|1|1|1|gamma|0|1|0|0|beta|0|1|0 => ~200|     0||[^~]*)");
}

}  // namespace
