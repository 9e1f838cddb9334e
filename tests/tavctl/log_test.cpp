// "test log": every line once, whatever happens to the log.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "client.h"
#include "client/logstate.h"
#include "client/logwatch.h"
#include "client/reply.h"

namespace {

// A writer that appends, leaves lines half-written and truncates, and knows which lines should be seen.
class Writer {
 public:
  Writer(const Agent& of, unsigned seed) : agent(of), random(seed) { agent.Write("app.log", ""); }

  void Burst(int lines) {
    if (half.empty() && Chance(3)) agent.Write("app.log", "");
    for (int i = 0; i < lines; ++i) {
      const std::string line = half + (Chance(4) ? "skip " : "keep ") + std::to_string(++number);
      agent.Append("app.log", line.substr(half.size()) + (Chance(2) ? "\n" : "\r\n"));
      half.clear();
      if (line.find("skip") == std::string::npos) expected += line + "\n";
    }
    if (!Chance(4)) return;
    half = "half of " + std::to_string(number) + " ";
    agent.Append("app.log", half);
  }

  std::string expected;
  int number = 0;

 private:
  bool Chance(unsigned n) { return random() % n == 0; }

  const Agent& agent;
  std::mt19937 random;
  std::string half;
};

}  // namespace

TEST(TavctlLog, ShowsEveryLineOnceOverFiftyChecksWithTruncations) {
  Agent agent;
  agent.Start();
  Client client(agent);
  Writer writer(agent, 7);
  std::string seen;
  const auto check = [&] {
    const Ran ran =
        client.Run("-q -o plain test log @/app.log --match \"'keep' and not 'skip'\" --state @/log.state");
    EXPECT_EQ(0, ran.status) << ran.err;
    seen += ran.out;
  };
  check();  // the log is empty: its first lines are new all the same
  for (int i = 0; i < 50; ++i) {
    writer.Burst(20);
    check();
  }
  EXPECT_EQ(1000, writer.number);
  EXPECT_EQ(writer.expected, seen);
}

TEST(TavctlLog, SkipsWhatIsThereUnlessAskedAndTellsFiltersApart) {
  Agent agent;
  agent.Start();
  Client client(agent);
  agent.Write("app.log", "old error\nhalf an er");
  EXPECT_EQ("", client.Run("-q test log @/app.log --match error --state @/a").out);
  EXPECT_EQ("old error\n", client.Run("-q test log @/app.log --match error --state @/b --from-start").out);
  agent.Append("app.log", "ror\nwarning\n");
  const std::string both = " --match error --match2 warning -q -o plain ";
  EXPECT_EQ("1\thalf an error\n2\twarning\n", client.Run("test log @/app.log --state @/a" + both).out);
  EXPECT_EQ("", client.Run("test log @/app.log --state @/a" + both).out);
  EXPECT_EQ(66, client.Run("test log @/other.log --state @/a" + both).status);
  EXPECT_EQ(66, client.Run("-H localhost test log @/app.log --state @/a" + both).status);
  EXPECT_EQ(66, client.Run("test log @/app.log --state @/a" + both, "flock @/a.lock").status);
  EXPECT_EQ(0, client.Run("test log @/app.log --state @/a" + both).status);
  EXPECT_FALSE(std::filesystem::exists(agent.At("@/a.lock")));
  EXPECT_EQ(std::filesystem::perms(0600), std::filesystem::status(agent.At("@/a")).permissions());
  EXPECT_EQ(1, client.Run("test log @/other.log --state @/c" + both).status);
  EXPECT_FALSE(std::filesystem::exists(agent.At("@/c")));
}

TEST(TavctlLog, FollowsUntilInterrupted) {
  Agent agent;
  agent.Start();
  Client client(agent);
  agent.Write("app.log", "");
  // Each step waits for what the one before must have shown.
  agent.Write("writer", agent.At("#!/bin/sh\nshown() { until grep -q \"$1\" @/out; do sleep 0.05; done; }\n"
                                 "until grep -q ready @/out; do echo ready line >>@/app.log; sleep 0.05; done\n"
                                 "echo line 1 >>@/app.log; shown 'line 1'; rm @/app.log; sleep 0.2\n"
                                 "echo line 2 >@/app.log; shown 'line 2'\ncat /proc/$(cat @/client)/environ "
                                 ">@/environ; kill -INT $(cat @/client)\n"));
  ASSERT_EQ(0, system(agent.At("timeout 20 @/writer &").c_str()));
  const Ran ran = client.RunBare(
      "-p " + std::to_string(agent.port) + " test log @/app.log --match line --follow " + "--interval 0.05",
      "timeout 25 sh -c 'echo $$ >@/client; TAV_PASSWORD=secret exec $*' sh");
  EXPECT_EQ(0, ran.status) << ran.err;
  EXPECT_NE(std::string::npos, ran.out.find("line\nline 1\nline 2\n")) << ran.out;
  const std::string environment = agent.Read("environ");
  EXPECT_NE(std::string::npos, environment.find("TAV_PASSWORD="));
  EXPECT_EQ(std::string::npos, environment.find("TAV_PASSWORD=secret"));
}

TEST(TavctlLog, SendsAKnownSizeOfZeroOnlyOnce) {
  std::vector<TLogQuery> sent;
  const auto empty = [&](const TLogQuery& query, TLogAnswer& answer, TFailure&) {
    sent.push_back(query);
    answer = TLogAnswer();  // an empty log: the agent's own first check puts the position at -1
    answer.position = query.knownSize == 0 ? -1 : query.position;
    answer.file = query.file;
    return true;
  };
  TLogQuery query;
  query.file = "/log";
  TLogWatch watch(query, empty);
  TLogState state;
  TFailure failure;
  for (int i = 0; i < 5; ++i)
    EXPECT_TRUE(watch.Check(
        state, false, [](const TLogLine&) { return true; }, failure));
  ASSERT_GT(sent.size(), 5u);
  EXPECT_EQ(0, sent[0].knownSize);
  for (size_t i = 1; i < sent.size(); ++i) {
    EXPECT_NE(0, sent[i].knownSize) << i;
    EXPECT_GE(sent[i].position, 0) << i;
  }
}

TEST(TavctlLog, KeepsAnyBytesInItsState) {
  TLogState state, back;
  std::string agent;
  state.pattern = "/log/*";
  state.places = {{"/log/\xff", 1LL << 40, 0, 0, 3, std::string("a\0\x80\"", 4)}};
  ASSERT_TRUE(DecodeState(EncodeState(state, "h:1"), back, agent));
  EXPECT_EQ(EncodeState(state, "h:1"), EncodeState(back, agent));
  EXPECT_EQ(state.places[0].anchorLine, back.places[0].anchorLine);
  for (const char* bad : {"", "{}", "[]", "{\"schema\":1,\"places\":3}", "{\"schema\":\"x\"}"})
    EXPECT_FALSE(DecodeState(bad, back, agent)) << bad;
}
