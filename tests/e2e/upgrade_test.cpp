// The remote upgrade: sizes, the one at a time, the digest, and an agent that comes back as the program it was
// sent.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

#include "agent_fixture.h"

namespace {

const char kRefused[] = "501\nWrong file parameter(s)";

// Starts a transfer, once the one before it has been let go; its reply must be `want`.
Socket Begin(const Agent& agent, size_t size, const std::string& want = "200") {
  Socket socket;
  std::string reply;
  EXPECT_TRUE(WaitFor([&] {
    socket = agent.Send("UpgradeCode|" + std::to_string(size));
    return (reply = ReadReply(socket)) != "302";
  }));
  EXPECT_EQ(want, reply) << size;
  return socket;
}

TEST(Upgrade, OneRunsAtATimeAndTheDigestComesInOneChunk) {
  Agent agent("");
  Begin(agent, 100, kRefused);
  Begin(agent, 10485760, kRefused);
  const std::string file(300, 'n'), apart(4092, 'n');  // this one's digest would begin in its last chunk
  const Socket first = Begin(agent, 300);
  first.Send(file.substr(100));
  agent.Expect("UpgradeCode|300", "302");
  first.Send(file.substr(200));
  ASSERT_TRUE(WaitUntilTaken(first));
  first.Send(Digest(file).substr(0, 8));
  EXPECT_EQ("300\nWrong CRC", ReadReply(first)) << "a digest in two chunks";
  for (const std::string& sent : {file + Digest("other"), apart + Digest(apart)}) {
    const Socket next = Begin(agent, sent.size() - Digest("").size());
    next.Send(sent);
    EXPECT_EQ("300\nWrong CRC", ReadReply(next));
    EXPECT_TRUE(next.EndsSilently());
  }
  for (const size_t sent : {0u, 100u, 300u}) Begin(agent, file.size()).Send(file.substr(0, sent));  // cut off
  EXPECT_TRUE(agent.TempFolderIsEmpty());
  EXPECT_EQ(0u, agent.Count("Upgrade request received"));
}

TEST(Upgrade, HandsOverToWhatItReceived) {
  const struct {
    size_t size;
    const char* first;
    size_t tail;  // bytes of the file that share a chunk with the digest
  } rows[] = {{300, "200", 0}, {300, "200", 1}, {100, kRefused, 1}};  // refused, the transfer runs all the same
  for (const auto& row : rows) {
    Agent agent;
    agent.Write("old", "the program before");
    agent.StartsBy("ulimit -Sn 200; exec %");
    agent.Start("tavpath=@/old\n", {"-i", "-v"});
    // Notes the limit and the ignored signals that it inherits, and its arguments.
    std::string file = "#!/bin/sh\n(ulimit -Sn; grep SigIgn /proc/$$/status) >had\necho $* >args\n";
    file.resize(row.size, '#');
    auto script = agent.Asking("TEST-ShellScript|/bin/sh %script%|sleep 2||20|0");
    EXPECT_TRUE(WaitFor([&] { return !Children(agent.pid).empty(); }));
    Socket socket = Begin(agent, row.size, row.first);
    socket.Send(file.substr(0, file.size() - row.tail));
    ASSERT_TRUE(WaitUntilTaken(socket));
    agent.Expect("UpgradeCode|300", "302");  // it would empty the file that is to be installed
    EXPECT_EQ(0u, agent.Count("Upgrade request received")) << "not when another session ends";
    socket.Send(file.substr(file.size() - row.tail) + Digest(file));
    EXPECT_EQ("200", ReadReply(socket));
    EXPECT_TRUE(socket.EndsSilently());
    EXPECT_TRUE(WaitFor([&] { return agent.Read("args") == agent.At("-i -v @/tav.cfg\n"); })) << agent.Console();
    EXPECT_EQ(file, agent.Read("old"));
    unsigned long limit = 0, ignored = 0;
    EXPECT_EQ(2, sscanf(agent.Read("had").c_str(), "%lu SigIgn: %lx", &limit, &ignored));
    EXPECT_EQ(200u, limit) << "as the agent found it";
    EXPECT_EQ(0u, ignored & (1u << (SIGPIPE - 1) | 1u << (SIGXFSZ - 1) | 1u << (SIGSEGV - 1)));
    EXPECT_TRUE(agent.Shows("Upgrade request received. Executing..\n"));
    EXPECT_EQ("closed", script.get());
    EXPECT_TRUE(agent.TempFolderIsEmpty()) << "neither script outlives the agent";
    agent.Expect("GetInfo", "refused");
  }
}

TEST(Upgrade, InstallsNothingButWhatItReceived) {
  for (const bool exchanged : {false, true}) {
    Agent agent;
    agent.Write("old", "the program before");
    agent.Start("tavpath=@/old\n");
    const std::string file = "#!/bin/sh\necho installed >>told\n" + std::string(100, '#');
    const Socket socket = Begin(agent, file.size());
    ASSERT_TRUE(socket.Send(file));
    ASSERT_TRUE(WaitUntilTaken(socket));
    std::filesystem::remove(agent.At("@/tmp/tav__.upd"));
    if (exchanged) agent.Write("tmp/tav__.upd", "#!/bin/sh\necho exchanged >>told\n");
    socket.Send(Digest(file));
    EXPECT_EQ("300\nCannot set exec flag new module", ReadReply(socket)) << exchanged;
    EXPECT_TRUE(agent.Shows("Upgrade request received. Executing..\n"));
    EXPECT_TRUE(WaitFor([&] { return agent.Read("old").empty(); })) << "the script runs";
    EXPECT_TRUE(agent.TempFolderIsEmpty()) << exchanged;
    EXPECT_EQ("", agent.Read("told"));
  }
}

TEST(Upgrade, ADaemonComesBackOnItsPortWithItsArguments) {
  Agent agent;
  agent.program = agent.At("@/prog");
  // Without symbols: what the tests run may be larger than an upgrade can carry.
  ASSERT_EQ(0, system(("strip -o " + agent.program + " " + AgentBinary()).c_str()));
  const std::string file = agent.Read("prog") + "a later build", port = std::to_string(agent.port);
  agent.Write("tav.cfg", "port=1\n" + agent.Defaults() + agent.At("tavpath=@/prog\n"));
  agent.Launch({"-d", "-v", "-p", port});
  const pid_t before = agent.PidInFile();
  EXPECT_EQ("200", agent.Upgrade(file));
  EXPECT_TRUE(agent.HandsOverFrom(before));
  EXPECT_TRUE(agent.Serves());
  EXPECT_EQ(file, agent.Read("prog"));
  EXPECT_TRUE(agent.TempFolderIsEmpty());
  const std::string arguments = ReadAll("/proc/" + std::to_string(agent.PidInFile()) + "/cmdline");
  EXPECT_EQ(agent.program + "|-d|-v|-p|" + port + "|" + agent.folder + "/tav.cfg|",
            Replaced(arguments, std::string(1, '\0'), "|"));
  agent.Expect("QUIT", "200|Ok");
}

}  // namespace
