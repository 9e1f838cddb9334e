// "test log": every line once, whatever happens to the log.
#include <filesystem>
#include <random>

#include "client.h"
#include "client/logstate.h"

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

using TavctlLog = Tavctl;

TEST_F(TavctlLog, ShowsEveryLineOnceOverFiftyChecksWithTruncations) {
  agent.Start();
  Writer writer(agent, 7);
  std::string seen;
  const auto check = [&] {
    const Ran ran = Run("-q -o plain test log @/app.log --match \"'keep' and not 'skip'\" --state @/log.state");
    EXPECT_EQ(0, ran.status) << ran.err;
    seen += ran.out;
  };
  check();  // the log is empty: its first lines are new all the same
  check();
  for (int i = 0; i < 50; ++i) {
    writer.Burst(20);
    check();
  }
  EXPECT_EQ(1000, writer.number);
  EXPECT_EQ(writer.expected, seen);
}

TEST_F(TavctlLog, SkipsWhatIsThereUnlessAskedAndTellsFiltersApart) {
  agent.Start();
  agent.Write("app.log", "old error\nhalf an er");
  EXPECT_EQ("", Run("-q test log @/app.log --match error --state @/a").out);
  EXPECT_EQ("old error\n", Run("-q test log @/app.log --match error --state @/b --from-start").out);
  agent.Append("app.log", "ror\nwarning\n");
  const std::string filters = " --match error --match2 warning -q -o plain", both = " --state @/a" + filters;
  EXPECT_EQ("1\thalf an error\n2\twarning\n", Run("test log @/app.log" + both).out);
  EXPECT_EQ("", Run("test log @/app.log" + both).out);
  EXPECT_EQ(66, Run("test log @/app.log" + both, "flock @/a.lock").status);
  Expect({{"test log @/other.log" + both, 66},
          {"-H localhost test log @/app.log" + both, 66},
          {"test log @/app.log" + both, 0},
          {"test log @/other.log --state @/c" + filters, 1}});
  EXPECT_EQ(std::filesystem::perms(0600), std::filesystem::status(agent.At("@/a")).permissions());
  for (const char* none : {"@/a.lock", "@/c"}) EXPECT_FALSE(std::filesystem::exists(agent.At(none))) << none;
}

TEST_F(TavctlLog, FollowsUntilInterrupted) {
  agent.Start();
  agent.Write("app.log", "");
  // Each step waits for what the one before must have shown.
  agent.Write("writer", agent.At("#!/bin/sh\nshown() { until grep -q \"$1\" @/out; do sleep 0.05; done; }\n"
                                 "until grep -q ready @/out; do echo ready line >>@/app.log; sleep 0.05; done\n"
                                 "echo line 1 >>@/app.log; shown 'line 1'; rm @/app.log; sleep 0.2\n"
                                 "echo line 2 >@/app.log; shown 'line 2'\ncat /proc/$(cat @/client)/environ "
                                 ">@/environ; kill -INT $(cat @/client)\n"));
  ASSERT_EQ(0, system(agent.At("timeout 20 @/writer &").c_str()));
  const Ran ran =
      RunBare("-p " + std::to_string(agent.port) + " test log @/app.log --match line --follow --interval 0.05",
              "timeout 25 sh -c 'echo $$ >@/client; TAV_PASSWORD=secret exec $*' sh");
  EXPECT_EQ(0, ran.status) << ran.err;
  EXPECT_THAT(ran.out, HasSubstr("line\nline 1\nline 2\n"));
  EXPECT_THAT(agent.Read("environ"), HasSubstr("TAV_PASSWORD="));
  EXPECT_THAT(agent.Read("environ"), Not(HasSubstr("TAV_PASSWORD=secret")));
}

TEST_F(TavctlLog, KeepsAnyBytesInItsState) {
  TLogState state, back;
  std::string owner;
  state.pattern = "/log/*";
  state.places = {{"/log/\xff", 1LL << 40, 0, 0, 3, std::string("a\0\x80\"", 4)}};
  ASSERT_TRUE(DecodeState(EncodeState(state, "h:1"), back, owner));
  EXPECT_EQ(EncodeState(state, "h:1"), EncodeState(back, owner));
  EXPECT_EQ(state.places[0].anchorLine, back.places[0].anchorLine);
  for (const char* bad : {"", "{}", "[]", "{\"schema\":1,\"places\":3}", "{\"schema\":\"x\"}"})
    EXPECT_FALSE(DecodeState(bad, back, owner)) << bad;
}
