// Many hosts at once: bad ones cost nobody else anything, and what can cost a host is tried on one first.
#include <filesystem>
#include <memory>
#include <thread>

#include "client.h"
#include "fake_agent.h"

using TavctlFleet = Tavctl;
namespace fs = std::filesystem;

static std::string HostOf(int port) {
  return "127.0.0.1:" + std::to_string(port) + "\n";
}

TEST_F(TavctlFleet, IsNotHeldUpByOneThatDripsOneThatIsSilentAndOneThatRefuses) {
  agent.Start();
  const Socket dripping = ServeTcp(), silent = ServeTcp();
  // Announces a long reply and sends a byte of it now and then, for as long as somebody listens.
  std::thread drip([&] {
    const Socket peer = Accept(dripping);
    for (std::string next("\xff\xff\0\0", 4); peer.Send(next); next = "x")
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
  });
  agent.Write("hosts", HostOf(dripping.Port()) + HostOf(silent.Port()) + HostOf(1) + "127.0.0.1 # this one\n");
  const Stopwatch watch;
  const Ran ran = Run("--hosts - -t 0.5 --deadline 1 -j 4 -o plain ping", "sh -c 'exec $* <@/hosts' sh");
  Expect({{"-p 1 --deadline 0.2 wait --for 30", 75}});
  EXPECT_LT(watch.Seconds(), 3);
  drip.join();
  EXPECT_EQ(75, ran.status) << ran.out << ran.err;
  const std::vector<std::string> lines = LinesOf(ran.out);
  ASSERT_EQ(4u, lines.size()) << ran.out;
  // In the order of their answers: the last two of the file first, the silent one before the dripping one.
  EXPECT_THAT(lines[0] + lines[1], HasSubstr("\tok\t1.30"));
  EXPECT_THAT(lines[0] + lines[1], HasSubstr("\tunreachable\t"));
  EXPECT_THAT(lines[2], HasSubstr("nothing for"));
  EXPECT_THAT(lines[3], HasSubstr("before the deadline"));
}

TEST_F(TavctlFleet, ShowsPeopleWhatTheyAskedFor) {
  agent.Start("proclistscript=@/list.sh\n");
  agent.Write("list.sh", "#!/bin/sh\necho init\n");
  agent.Write("s.sh", "echo from the script\n");
  agent.Write("data/entry", "");
  agent.Write("app.log", "an error\n");
  agent.Write("hosts", HostOf(agent.port));
  Expect({{"--hosts @/hosts ls @/data", 0, "\n  entry\n"},
          {"--hosts @/hosts ps", 0, "\n  init\n"},
          {"--hosts @/hosts raw TEST-FolderSize @/data", 0, "  200\n"},
          {"--hosts @/hosts script --yes @/s.sh", 0, "  from the script\n"},
          {"--hosts @/hosts test log @/app.log --match error --from-start", 0, "\n  an error\n"},
          {"--hosts @/hosts run -- true", 64},
          {"run -- true", 0}});
}

TEST_F(TavctlFleet, LosesNoneOfFiveAgentsToATruncatedProgram) {
  std::vector<std::unique_ptr<Agent>> agents;
  for (int i = 0; i < 5; ++i) {
    agents.push_back(std::make_unique<Agent>(""));
    agent.Append("hosts", HostOf(agents.back()->port));
    if (i > 0) agent.Append("others", HostOf(agents.back()->port));
  }
  const std::string cut = agent.At("@/cut"), program = AgentBinary();
  fs::copy(program, cut);
  fs::resize_file(cut, fs::file_size(program) - 1);
  Expect({{"--hosts @/hosts upgrade " + program, 64},  // nobody said yes
          {"--hosts @/hosts upgrade --yes @/cut", 66},
          {"--hosts @/hosts ping", 0},
          {"--hosts @/hosts upgrade --yes " + program, 0}});

  // Who insists loses the first, and no other.
  fs::resize_file(cut, 4096);
  const Ran forced = Run("--hosts @/hosts upgrade --yes --force --wait 1 @/cut");
  EXPECT_EQ(75, forced.status) << forced.out;
  const std::vector<std::string> lines = LinesOf(forced.out);
  ASSERT_EQ(5u, lines.size()) << forced.out;
  for (size_t i = 1; i < 5; ++i) EXPECT_THAT(lines[i], HasSubstr("  skipped "));
  Expect({{"--hosts @/others ping", 0}});
}

TEST_F(TavctlFleet, SendsTheDigestOnceMoreAndDoesNotTakeTheOldAgentForTheNew) {
  const std::string info =
      "200\nAgentVersion=9\nAvailable tests=\nEnabled tests=\nAvailable actions=\nEnabled actions=\nPort=1\n";
  std::atomic<int> opened{10}, digests{0};
  const FakeAgent fake([&](const std::string& request) -> std::string {
    if (request == "digest") return ++digests == 1 ? "300\nWrong CRC" : "200";
    if (request.rfind("GetInfo", 0) != 0) return "200";
    if (digests == 2) opened = 0;
    return info + "OpenedConnections=" + std::to_string(++opened);
  });
  agent.port = fake.Port();
  Expect({{"restart --yes --wait 0.3", 75, "old agent still answers"}, {"upgrade --yes " + AgentBinary(), 0}});
  EXPECT_EQ(2, digests);
}
