// The parts that need no agent.
#include <gtest/gtest.h>

#include <fstream>

#include "agent/upgrade.h"
#include "client.h"
#include "client/reply.h"
#include "client/request.h"
#include "client/text.h"
#include "tavctl/configcheck.h"
#include "tavctl/exprview.h"
#include "tavctl/program.h"

TEST(TavctlText, MakesWhatATerminalWouldObeyVisible) {
  EXPECT_EQ("\\x1b[31mred\\x07\\r\\n\\tb", Visible("\033[31mred\a\r\n\tb"));
  EXPECT_EQ("gr\xc3\xbc\xc3\x9f", Visible("gr\xc3\xbc\xc3\x9f"));
  EXPECT_EQ("\\xc3 \\xc0\\x80 \\xc2\\x9b \\xe2\\x80\\xae", Visible("\xc3 \xc0\x80 \xc2\x9b \xe2\x80\xae"));
}

TEST(TavctlRequest, JoinsWordsAsTheAgentPartsThem) {
  const struct {
    std::vector<std::string> words;
    const char* line;  // null: refused
  } rows[] = {
      {{"ls", "-l"}, "ls -l"},
      {{"a b", "", "c"}, "\"a b\" \"\" c"},
      {{"say \"x y\""}, "'say \"x y\"'"},
      {{"it's", "x=\"y\""}, "it's x=\"y\""},
      {{"'a' \"b\""}, nullptr},
      {std::vector<std::string>(24, "x"), nullptr},
      {{std::string(1024, 'x')}, nullptr},
  };
  for (const auto& row : rows) {
    std::string line;
    TFailure failure;
    const bool joined = JoinCommand(row.words, line, failure);
    EXPECT_EQ(row.line == nullptr ? "refused" : row.line, joined ? line : "refused");
  }
}

TEST(TavctlRequest, RefusesValuesThatWouldArriveOtherwise) {
  for (const char* bad : {"a\nb", "a\rb", " a", "a\t", "\xc3\xa9"}) {
    TParams params;
    TFailure failure;
    params.Text(1, bad);
    EXPECT_FALSE(params.Finish(failure)) << bad;
  }
  TParams params;
  TFailure failure;
  params.Text(3, "x");
  params.Encoded(1, "a\r\nb");
  EXPECT_TRUE(params.Finish(failure));
  EXPECT_EQ("C\r\na%0D%0Ab\r\n\r\nx\r\n", params.RequestText("C"));
}

TEST(TavctlReply, TakesOnlyWhatAnAgentSends) {
  TReply reply;
  TFailure failure;
  ASSERT_TRUE(ParseReply("301\nno such file\n\r", reply, failure));
  EXPECT_EQ("301", reply.code);
  EXPECT_EQ(std::vector<std::string>{"no such file"}, reply.lines);
  for (const char* bad : {"", "200", "200\n", "2000\n\n\r", "abc\n\r", "200 \n\r", "200\nx"})
    EXPECT_FALSE(ParseReply(bad, reply, failure)) << bad;
}

TEST(TavctlExpr, SaysWhereAnExpressionIsWrong) {
  const struct {
    const char *text, *grouping;
    size_t at;
  } rows[] = {
      {"'a' or 'b' and 'c'", "('a' or 'b') and 'c'", 0},
      {"not 'a' or 'b'", "not ('a' or 'b')", 0},
      {"error", "", 0},
      {"  12 and bad", "", 9},
      {"'a' and ('b", "", 9},
      {"'a') or 'b'", "", 3},
      {"'a' 'b'", "", 7},
      {"('a'", "", 4},
  };
  for (const auto& row : rows) {
    const TExprView view = ViewExpression(row.text);
    EXPECT_EQ(row.grouping[0] != '\0', view.valid) << row.text;
    EXPECT_EQ(row.grouping, view.grouping) << row.text;
    EXPECT_EQ(row.at, view.faultAt) << row.text << ": " << view.fault;
  }
}

TEST(TavctlUpgrade, RefusesWhatIsNoProgramForThisMachine) {
  std::string good(4096, '\0');
  std::ifstream("/proc/self/exe", std::ios::binary).read(good.data(), 4096);
  TFailure failure;
  EXPECT_TRUE(CheckProgram(good, "f", failure)) << failure.text;
  for (const size_t at : {0u, 4u, 5u, 16u, 18u}) {  // magic, class, byte order, type, machine
    std::string bad = good;
    bad[at] = 99;
    EXPECT_FALSE(CheckProgram(bad, "f", failure)) << at;
  }
  EXPECT_FALSE(CheckProgram(good.substr(0, 100), "f", failure));
  EXPECT_FALSE(CheckProgram(std::string(kLargestProgram + 1, 'x'), "f", failure));
}

TEST(TavctlConfig, FindsWhatIsProbablyNotMeant) {
  Agent agent;  // for its folder only
  agent.Write("c",
              "port=1\nport=2\nlogsuccess=yes\nnosuch=1\nno equals\ntimeout=1s\ntmpdir=/nonexistent\n"
              "cpuusagescript=@/x\nfilteractive=1\nfilterlist=10.0.0.1 10.0.0.2\nfiltermarks=1\n"
              "manageaddr=10.0.0.1 10.0.0.2\nbadlogfile=/nonexistent/log\n");
  std::vector<TFinding> findings;
  TFailure failure;
  ASSERT_TRUE(CheckConfig(agent.At("@/c"), findings, failure));
  std::string all;
  for (const TFinding& finding : findings) all += std::to_string(finding.line) + ": " + finding.text + "\n";
  for (const char* expected : {"others than its owner", "2: 'port'", "3: logsuccess=yes", "4: unknown key 'nosuch'",
                               "5: ", "6: timeout=1s", "tmpdir: '/nonexistent'", "cpuusagescript: ",
                               "1 marks for 2", "manageaddr: ", "badlogfile: ", "Password is not specified"})
    EXPECT_NE(std::string::npos, all.find(expected)) << expected << "\n" << all;
}
