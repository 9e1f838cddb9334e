// Many hosts at once: bad ones cost nobody else anything, and what can cost a host is tried on one first.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <sstream>
#include <thread>

#include "client.h"
#include "fake_agent.h"

namespace {

std::string HostOf(int port) {
  return "127.0.0.1:" + std::to_string(port) + "\n";
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

// An agent whose program may be replaced.
std::unique_ptr<Agent> Replaceable() {
  auto agent = std::make_unique<Agent>();
  agent->program = agent->At("@/prog");
  std::filesystem::copy(AgentBinary(), agent->program);
  agent->Start();
  return agent;
}

// Announces a long reply and sends a byte of it now and then, for as long as somebody listens.
void Drip(const Socket& listener) {
  const Socket peer = Accept(listener);
  if (!peer.Send(std::string("\xff\xff\0\0", 4))) return;
  while (peer.Send("x")) std::this_thread::sleep_for(std::chrono::milliseconds(100));
}

}  // namespace

TEST(TavctlFleet, IsNotHeldUpByOneThatDripsOneThatIsSilentAndOneThatRefuses) {
  Agent agent;
  agent.Start();
  Client client(agent);
  const Socket dripping = ServeTcp(), silent = ServeTcp();
  std::thread drip(Drip, std::cref(dripping));
  agent.Write("hosts", HostOf(dripping.Port()) + HostOf(silent.Port()) + HostOf(1) + "127.0.0.1 # this one\n");
  const Stopwatch watch;
  const Ran ran = client.Run("--hosts - -t 0.5 --deadline 1 -j 4 -o plain ping", "sh -c 'exec $* <@/hosts' sh");
  EXPECT_EQ(75, client.RunBare("-p 1 --password-file @/pw --deadline 0.2 wait --for 30").status);
  EXPECT_LT(watch.Seconds(), 3);
  drip.join();
  EXPECT_EQ(75, ran.status) << ran.out << ran.err;
  const std::vector<std::string> lines = LinesOf(ran.out);
  ASSERT_EQ(4u, lines.size()) << ran.out;
  // In the order of their answers: the last two of the file first, the silent one before the dripping one.
  EXPECT_NE(std::string::npos, (lines[0] + lines[1]).find("\tok\t1.30"));
  EXPECT_NE(std::string::npos, (lines[0] + lines[1]).find("\tunreachable\t"));
  EXPECT_NE(std::string::npos, lines[2].find("nothing for")) << lines[2];
  EXPECT_NE(std::string::npos, lines[3].find("before the deadline")) << lines[3];
}

TEST(TavctlFleet, ShowsPeopleWhatTheyAskedFor) {
  Agent agent;
  agent.Start("proclistscript=@/list.sh\n");
  Client client(agent);
  agent.Write("list.sh", "#!/bin/sh\necho init\n");
  agent.Write("s.sh", "echo from the script\n");
  agent.Write("data/entry", "");
  agent.Write("app.log", "an error\n");
  agent.Write("hosts", HostOf(agent.port));
  const struct {
    const char *line, *shown;
  } rows[] = {
      {"ls @/data", "\n  entry\n"},
      {"ps", "\n  init\n"},
      {"raw TEST-FolderSize @/data", "  200\n"},
      {"script --yes @/s.sh", "  from the script\n"},
      {"test log @/app.log --match error --from-start", "\n  an error\n"},
  };
  for (const auto& row : rows) {
    const Ran ran = client.Run(std::string("--hosts @/hosts ") + row.line);
    EXPECT_EQ(0, ran.status) << row.line << ran.err;
    EXPECT_NE(std::string::npos, ran.out.find(row.shown)) << row.line << "\n" << ran.out;
  }
  EXPECT_EQ(64, client.Run("--hosts @/hosts run -- true").status);
  EXPECT_EQ(0, client.Run("run -- true").status);
}

TEST(TavctlFleet, LosesNoneOfFiveAgentsToATruncatedProgram) {
  std::vector<std::unique_ptr<Agent>> agents;
  for (int i = 0; i < 5; ++i) agents.push_back(Replaceable());
  Client client(*agents[0]);
  std::string hosts;
  for (const auto& agent : agents) hosts += HostOf(agent->port);
  agents[0]->Write("hosts", hosts);
  std::filesystem::copy(AgentBinary(), agents[0]->At("@/cut"));
  std::filesystem::resize_file(agents[0]->At("@/cut"), std::filesystem::file_size(AgentBinary()) - 1);

  EXPECT_EQ(64, client.Run("--hosts @/hosts upgrade " + AgentBinary()).status);  // nobody said yes
  EXPECT_EQ(66, client.Run("--hosts @/hosts upgrade --yes @/cut").status);
  EXPECT_EQ(0, client.Run("--hosts @/hosts ping").status);
  const Ran good = client.Run("--hosts @/hosts upgrade --yes " + AgentBinary());
  EXPECT_EQ(0, good.status) << good.out << good.err;

  // Who insists loses the first, and no other.
  std::filesystem::resize_file(agents[0]->At("@/cut"), 4096);
  const Ran forced = client.Run("--hosts @/hosts upgrade --yes --force --wait 1 @/cut");
  EXPECT_EQ(75, forced.status) << forced.out;
  const std::vector<std::string> lines = LinesOf(forced.out);
  ASSERT_EQ(5u, lines.size()) << forced.out;
  for (size_t i = 1; i < 5; ++i) EXPECT_NE(std::string::npos, lines[i].find("  skipped ")) << lines[i];
  agents[0]->Write("hosts", hosts.substr(hosts.find('\n') + 1));
  EXPECT_EQ(0, client.Run("--hosts @/hosts ping").status);
}

TEST(TavctlFleet, SendsTheDigestOnceMoreAndDoesNotTakeTheOldAgentForTheNew) {
  const std::string info =
      "200\nAgentVersion=9\nAvailable tests=\nEnabled tests=\nAvailable actions=\nEnabled actions=\nPort=1\n";
  std::atomic<int> opened{10}, digests{0};
  const FakeAgent fake([&](const std::string& request) -> std::string {
    if (request == "digest") return ++digests == 1 ? "300\nWrong CRC" : "200";
    if (request.rfind("GetInfo", 0) != 0) return "200";
    if (digests == 2) opened = 0;
    return info + "OpenedConnections=" + std::to_string(++opened);
  });
  Agent agent;
  Client client(agent);
  agent.port = fake.Port();
  const Ran ran = client.Run("restart --yes --wait 0.3");
  EXPECT_EQ(75, ran.status);
  EXPECT_NE(std::string::npos, ran.err.find("old agent still answers")) << ran.err;
  EXPECT_EQ(0, client.Run("upgrade --yes " + AgentBinary()).status);
  EXPECT_EQ(2, digests);
}
