// Scripts, lookups, upgrades and the agent's own process when they go wrong.
#include <arpa/inet.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>

#include "faults.h"

namespace {

// Cure: each session has its own thread and files, a child's end is noticed at once, and one owner reaps each child.
TEST(Processes, EightyScriptsAtOnceEndSoonAndLeaveNothing) {
  Agent agent("");
  EXPECT_EQ("200\n0", agent.Ask("TEST-ExternalPrg|sleep 2|||-1")) << "nobody waits for this one";
  const Stopwatch watch;
  std::vector<std::future<void>> scripts;
  for (int i = 0; i < 80; ++i) {
    scripts.push_back(std::async(std::launch::async, [&agent, n = std::to_string(i)] {
      EXPECT_EQ("200\nscriptres:" + n + "\n", agent.Ask("TEST-ShellScript|/bin/sh %script%|sleep 1; echo scriptres:" + n + "||20|0"));
    }));
  }
  ExpectServed(agent, 5);
  scripts.clear();
  EXPECT_LT(watch.Seconds(), kSanitized ? 30 : 8);
  EXPECT_TRUE(WaitFor([&] { return Children(agent.pid).empty(); })) << "no child and no zombie stays";
  EXPECT_TRUE(agent.TempFolderIsEmpty());
}

// A name server of this thread's own network that never answers; false when there can be none.
bool MakeSilentNameServer(const Agent& agent, const Socket& server) {
  ifreq loopback{};
  strcpy(loopback.ifr_name, "lo");
  loopback.ifr_flags = IFF_UP | IFF_RUNNING;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(53);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  agent.Write("resolv.conf", "nameserver 127.0.0.1\noptions timeout:3 attempts:1\n");
  agent.Write("nsswitch.conf", "hosts: dns\n");
  return ioctl(server.Descriptor(), SIOCSIFFLAGS, &loopback) == 0 &&
         bind(server.Descriptor(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
         mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount(agent.At("@/resolv.conf").c_str(), "/etc/resolv.conf", nullptr, MS_BIND, nullptr) == 0 &&
         mount(agent.At("@/nsswitch.conf").c_str(), "/etc/nsswitch.conf", nullptr, MS_BIND, nullptr) == 0;
}

// Cure: no lock is held over a name lookup.
void ExpectLookupsToHangAlone(bool& possible) {
  possible = unshare(CLONE_NEWNET | CLONE_NEWNS) == 0;
  Agent agent;
  const Socket server(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  possible = possible && MakeSilentNameServer(agent, server);
  if (!possible) return;
  Start(agent, "");
  const Stopwatch watch;
  std::vector<std::future<void>> lookups;
  for (const char* request : {"TEST-TCP|a.example.|80|1000||0", "TEST-UDP|a.example.|80|1|1|x|0", "TEST-TCP|b.example.|80|1000||0"}) {
    lookups.push_back(std::async(std::launch::async, [&agent, request] { EXPECT_EQ("301", FirstLine(agent.Ask(request))); }));
  }
  EXPECT_TRUE(WaitFor([&] { return Tells(agent, "ActiveConnections=4"); })) << "the lookups hang";
  ExpectServed(agent, 10);
  EXPECT_LT(watch.Seconds(), 3) << "the name server was not given up yet";
  lookups.clear();
  EXPECT_GT(watch.Seconds(), 2.5);
  EXPECT_LT(watch.Seconds(), 8) << "side by side";
}

TEST(Processes, ASilentNameServerHoldsUpItsSessionsOnly) {
  bool possible = false;
  std::thread([&] { ExpectLookupsToHangAlone(possible); }).join();  // namespaces are the thread's and its children's
  if (!possible) GTEST_SKIP() << "no network namespace with a name server of its own can be made here";
}

// Cure: a session that ends before its upgrade is complete lets go of the upgrade and of its file.
TEST(Processes, AnUpgradeThatIsCutOffLeavesTheNextOneFree) {
  Agent agent("");
  const std::pair<const char*, size_t> rows[] = {{"300", 0}, {"300", 100}, {"300", 300}, {"1", 0}, {"100", 50}};
  for (const auto& [size, sent] : rows) {
    std::string reply;
    {
      const Socket cut = Open(agent, std::string("UpgradeCode\r\n") + size + "\r\n", reply);
      EXPECT_EQ(atoi(size) > 100 ? "200" : "501\nWrong file parameter(s)", reply);
      cut.Send(std::string(sent, 'n'));
      EXPECT_EQ("302", agent.Ask("UpgradeCode|300"));
    }
    EXPECT_TRUE(WaitFor([&] { return IsAlone(agent); }));
    EXPECT_TRUE(agent.TempFolderIsEmpty()) << size << " bytes, cut after " << sent;
  }
}

// Cure: the message is written with system calls alone, and the handler takes itself out.
TEST(Processes, AFaultIsToldAndTheSecondOneEndsTheAgent) {
  Agent agent("");
  kill(agent.pid, SIGSEGV);
  EXPECT_TRUE(agent.Shows("\t tav\t\t Segmentation fault!!\n"));
  EXPECT_NE(std::string::npos, agent.Read("log2.txt").find("\t tav\t\t Segmentation fault!!\n"));
  EXPECT_EQ(0u, agent.Count("Restarting..")) << "too soon after the start";
  ExpectServed(agent);
  kill(agent.pid, SIGSEGV);
  EXPECT_EQ(256 + SIGSEGV, agent.ExitStatus(agent.pid));
}

// Cure: the pid file is locked before it is truncated, and deleted only by who has locked it.
TEST(Processes, ASecondInstanceLeavesTheFirstOnesPidFile) {
  Agent first("", {"-d"});
  const std::string pid = first.Read("tav.pid");
  Agent second(first.At("pidfile=@/tav.pid\nverboselogfile=verbose.log\n"), {"-d", "-v"});
  EXPECT_NE(std::string::npos, second.Read("log2.txt").find("Failed to lock pid file " + first.At("@/tav.pid")));
  EXPECT_EQ(pid, first.Read("tav.pid"));
  EXPECT_EQ("200\nOk", second.Ask("QUIT"));
  EXPECT_TRUE(WaitFor([&] { return second.Ask("GetInfo") == "refused"; }));
  EXPECT_EQ(pid, first.Read("tav.pid"));
  ExpectServed(first);
}

// Cure: the flag is cleared, and a listener that is closed is waited for no more.
TEST(Processes, AReplacementThatFailsDoesNotSpin) {
  Agent agent;
  agent.Write("gone", "");
  Start(agent, "tavpath=@/gone\n");
  fs::remove(agent.At("@/gone"));
  EXPECT_EQ("200\nOk", agent.Ask("ReloadApp"));
  EXPECT_TRUE(agent.Shows("Error: cannot start new instance\n"));
  const double before = CpuSeconds(agent.pid);
  Sleep(2);
  EXPECT_LT(CpuSeconds(agent.pid) - before, 0.5);
  EXPECT_EQ(1u, agent.Count("Error: cannot start new instance\n"));
  EXPECT_EQ("refused", agent.Ask("GetInfo"));
  EXPECT_EQ(0, kill(agent.pid, 0));
}

}  // namespace
