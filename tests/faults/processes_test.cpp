// Scripts, lookups, upgrades and the agent's own process when they go wrong.
#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include "faults.h"

namespace {

// Sets the time of the agent's start back by a quarter of an hour.  It is a second of the monotonic clock, behind
// the words that are raised, which are zero.
bool MakeOld(pid_t pid) {
  const Socket memory(open(("/proc/" + std::to_string(pid) + "/mem").c_str(), O_RDWR | O_CLOEXEC));
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  for (const TMemory& part : MemoryOf(pid, false)) {
    for (size_t at = 0; at + 24 <= part.bytes.size(); at += 8) {
      long words[3];
      memcpy(words, &part.bytes[at], sizeof words);
      if (words[0] != 0 || words[1] != 0 || words[2] < now.tv_sec - 60 || words[2] > now.tv_sec) continue;
      const long old = words[2] - 900;
      return pwrite(memory.Descriptor(), &old, sizeof old, static_cast<off_t>(part.address + at + 16)) > 0;
    }
  }
  return false;
}

// A segmentation fault of one thread's own, as far as the agent can tell.
bool Break(pid_t pid, pid_t thread) {
  const auto stops = [=] { return WaitFor([=] { return waitpid(thread, nullptr, __WALL | WNOHANG) == thread; }); };
  siginfo_t info = {};
  if (ptrace(PTRACE_ATTACH, thread, 0, 0) != 0 || !stops()) return false;
  syscall(SYS_tgkill, pid, thread, SIGSEGV);
  ptrace(PTRACE_CONT, thread, 0, 0);
  if (!stops() || ptrace(PTRACE_GETSIGINFO, thread, 0, &info) != 0) return false;
  info.si_code = SEGV_MAPERR;
  return ptrace(PTRACE_SETSIGINFO, thread, 0, &info) == 0 && ptrace(PTRACE_DETACH, thread, 0, SIGSEGV) == 0;
}

// A thread of the agent's, not the first, that is writing; 0 without one.
pid_t SessionThread(pid_t pid) {
  for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    const pid_t thread = std::stoi(task.path().filename());
    if (thread != pid && atoi(ReadAll(task.path() / "syscall").c_str()) == SYS_write) return thread;
  }
  return 0;
}

// Cure: each session has its own thread and files, a child's end is noticed at once, and one owner reaps each
// child.
TEST(Processes, EightyScriptsAtOnceEndSoonAndLeaveNothing) {
  Agent agent("");
  EXPECT_EQ("200\n0", agent.Ask("TEST-ExternalPrg|sleep 2|||-1")) << "nobody waits for this one";
  const Stopwatch watch;
  std::vector<std::future<void>> scripts;
  for (int i = 0; i < 80; ++i) {
    scripts.push_back(std::async(std::launch::async, [&agent, line = "scriptres:" + std::to_string(i)] {
      const std::string run = line.back() % 2 == 0 ? "/bin/sh %script%" : "sh -c '\"$0\"' %script% ";
      EXPECT_EQ("200\n" + line + "\n",
                agent.Ask("TEST-ShellScript|" + run + "|#!/bin/sh%0Asleep 1; echo " + line + "||20|0"));
    }));
  }
  ExpectServed(agent, 5);
  scripts.clear();
  EXPECT_LT(watch.Seconds(), Sanitized() ? 60 : 20);
  EXPECT_TRUE(WaitFor([&] { return Children(agent.pid).empty(); })) << "no child and no zombie stays";
  EXPECT_TRUE(agent.TempFolderIsEmpty());
}

// Cure: no lock is held over a name lookup.
TEST(Processes, ASilentNameServerHoldsUpItsSessionsOnly) {
  const Socket server(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address{AF_INET, htons(53), {htonl(INADDR_LOOPBACK + 52)}, {}};
  const bool served = bind(server.Descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  if (!served || system("unshare -m true") != 0) GTEST_SKIP() << "no name server and name space can be made here";

  Agent agent;
  agent.Write("resolv.conf", "nameserver 127.0.0.53\noptions timeout:3 attempts:1\n");
  agent.Write("nsswitch.conf", "hosts: dns\n");
  agent.StartsBy(
      "mount --bind resolv.conf /etc/resolv.conf && mount --bind nsswitch.conf /etc/nsswitch.conf && exec %");
  fs::rename(agent.program, agent.At("@/inside"));
  agent.Write("start", "#!/bin/sh\nexec unshare -m ./inside \"$@\"\n");
  agent.Start();
  const Stopwatch watch;
  std::vector<std::future<std::string>> lookups;
  for (const std::string request :
       {"TEST-TCP|a.test.|80|9|", "TEST-UDP|a.test.|80|9|1|x", "TEST-TCP|b.test.|80|9|"})
    lookups.push_back(agent.Asking(request + "|0"));
  EXPECT_TRUE(WaitFor([&] { return agent.Tells("ActiveConnections=4"); })) << "the lookups hang";
  agent.Write("tav.cfg", agent.Defaults() + "host=c.test.\n");
  agent.Expect("ReloadCfg", "200|Ok");
  EXPECT_EQ("200", agent.Ask("SetSettings|Port=" + std::to_string(FreePort()))) << "moves to where that name is";
  ExpectServed(agent, 10);
  EXPECT_LT(watch.Seconds(), Sanitized() ? 30 : 3) << "the name server was not given up yet";
  for (auto& lookup : lookups) EXPECT_EQ("301", FirstLine(lookup.get()));
  EXPECT_GT(watch.Seconds(), 2.5);
  EXPECT_LT(watch.Seconds(), Sanitized() ? 30 : 8) << "side by side";
}

// Cure: the message is written with system calls alone, and the handler takes itself out.
TEST(Processes, AnEarlyFaultIsToldAndSurvivedOnce) {
  Agent agent("");
  const std::string end = "\t tav\t\t Segmentation fault!!\n";
  EXPECT_EQ("500", agent.Ask("NoSuch"));
  kill(agent.pid, SIGSEGV);
  EXPECT_TRUE(agent.Shows("Segmentation fault!!\n"));
  EXPECT_TRUE(agent.Shows(end, "log2.txt"));
  EXPECT_EQ("500", agent.Ask("NoSuch"));
  const std::string log = agent.Read("log2.txt"), hour = log.substr(log.find(end) - 21, 14);
  EXPECT_TRUE(log.find(hour) == 0 || log.rfind(hour) > log.find(end)) << "the hour of a message beside it: " << log;
  kill(agent.pid, SIGSEGV);
  EXPECT_EQ(256 + SIGSEGV, agent.ExitStatus());
  EXPECT_EQ(0u, agent.Count("Restarting..\n"));
}

// Cure: descriptors close on exec, what blocks does not wait, limits and signals are handed on as they were found.
TEST(Processes, HandOnNothingThatIsTheAgentsOwn) {
  Agent agent;
  agent.StartsBy("ulimit -Sn 200; exec env --ignore-signal=CHLD %");
  agent.Start("", {"-d"});
  ASSERT_TRUE(WaitFor([&] { return agent.PidInFile() > 0; }));
  const std::string process = "/proc/" + std::to_string(agent.PidInFile());
  agent.Expect("TEST-ExternalPrg|sh -c 'exit 7'|||0", "200|7");  // how children end is not hidden
  agent.Expect("TEST-ExternalPrg|sh -c 'test $(ulimit -Sn) = 200'|||0", "200|0");
  EXPECT_EQ(0, system(("grep -qE '^Max open files +([0-9]+) +\\1 ' " + process + "/limits").c_str())) << "raised";

  const Socket server = ServeTcp(), waits = Connect(agent.port);
  const Socket asks = agent.Send("TEST-TCP|127.0.0.1|" + std::to_string(server.Port()) + "|9000||1");
  const Socket probed = Accept(server);
  ExpectServed(agent);
  size_t sockets = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(process + "/fd")) {
    const std::string name = entry.path().filename(), target = fs::read_symlink(entry);
    std::ifstream info(process + "/fdinfo/" + name);
    unsigned flags = 0;
    for (std::string word; info >> word && word != "flags:";) continue;
    info >> std::oct >> flags;
    const bool isSocket = target.rfind("socket:", 0) == 0;
    sockets += isSocket;
    EXPECT_TRUE(atoi(name.c_str()) < 3 || (flags & O_CLOEXEC)) << target << " would be inherited";
    EXPECT_TRUE(!isSocket || (flags & O_NONBLOCK)) << target << " can hold up its thread";
  }
  EXPECT_LE(4u, sockets) << "the listener, two peers, the probe";
  const std::string alive = "ss -tnoH state established 'sport = :" + std::to_string(agent.port) + "'";
  EXPECT_EQ(0, system((alive + " | grep -q keepalive").c_str())) << "a peer that has vanished is noticed";

  agent.Expect("ReloadApp", "200|Ok");
  for (const Socket& socket : {waits, asks, probed})
    EXPECT_TRUE(socket.EndsSilently()) << "a restart lets go of them";
  EXPECT_TRUE(WaitFor([&] { return agent.Serves(); }));
}

// The agent's listener, as a child holds it that was forked a moment ago; none where that is not allowed.
Socket ListenerOf(pid_t pid) {
  const Socket process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  for (int fd = 3; fd < 20; ++fd) {
    const Socket held(static_cast<int>(syscall(SYS_pidfd_getfd, process.Descriptor(), fd, 0)));
    int on = 0;
    socklen_t size = sizeof on;
    if (getsockopt(held.Descriptor(), SOL_SOCKET, SO_ACCEPTCONN, &on, &size) == 0 && on != 0) return held;
  }
  return Socket();
}

// Cure: the listener leaves the epoll instance before it is closed, and what was changed for the restart comes
// back.
TEST(Processes, AFailedRestartClosesThePortAndLeavesAllElseAsItWas) {
  Agent agent;
  agent.StartsBy("ulimit -S -n 256; exec %");
  agent.Start("tavpath=@/tav.cfg\n");
  const std::string limits = "/proc/" + std::to_string(agent.pid) + "/limits", before = ReadAll(limits);
  EXPECT_EQ(std::string::npos, before.find(" 256 ")) << "the soft limit was raised";
  const Socket held = ListenerOf(agent.pid), waiting = Connect(agent.port);
  agent.Expect("ReloadApp", "200|Ok");
  EXPECT_TRUE(agent.Shows("Error: cannot start new instance\n"));
  EXPECT_EQ(before, ReadAll(limits));
  const double used = CpuSeconds(agent.pid);
  const Socket unheard = Connect(agent.port);
  EXPECT_EQ(held.Descriptor() >= 0, unheard.Descriptor() >= 0) << "the port is closed";
  Sleep(1);
  EXPECT_LT(CpuSeconds(agent.pid) - used, 0.05) << "nothing is accepted without a listener";
  kill(agent.pid, SIGSEGV);
  EXPECT_TRUE(agent.Shows("Segmentation fault!!\n"));
  EXPECT_EQ(1u, agent.Count("Error: cannot start new instance\n")) << "one request, one attempt";
  waiting.Send(agent.Sealed("QUIT").Bytes());
  EXPECT_EQ("200\nOk", ReadReply(waiting)) << "it stays";
}

// Cure: the thread that broke starts the agent anew when the main thread can't.
TEST(Processes, AFaultUnderALockCostsNoMoreThanARestart) {
  Agent agent;
  ASSERT_EQ(0, mkfifo(agent.At("@/pipe").c_str(), 0600));
  const Socket pipe(open(agent.At("@/pipe").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  std::string shown;
  const auto shows = [&](const std::string& text, int times) {
    return WaitFor([&] {
      char bytes[4096];
      for (ssize_t n; (n = read(pipe.Descriptor(), bytes, sizeof bytes)) > 0;)
        shown.append(bytes, static_cast<size_t>(n));
      size_t at = 0;
      for (int i = 0; i < times && at != std::string::npos; ++i) at = shown.find(text, at + 1);
      return at != std::string::npos;
    });
  };
  agent.StartsBy("exec % >pipe");
  agent.Write("tav.pid", "1");  // the console is the pipe, and not waited for
  agent.Start("timeout=2000\nverboselogfile=verbose.log\n", {"-i", "-v"});
  ASSERT_TRUE(shows("Listening...\n", 1));
  ASSERT_TRUE(MakeOld(agent.pid));
  const Socket silent = Connect(agent.port), broken = Connect(agent.port);
  ASSERT_TRUE(shows("TCP connection accepted\n", 2));

  while (write(pipe.Descriptor(), "", 1) == 1) continue;  // who speaks now waits, and holds the lock
  broken.Send(agent.Sealed("GetInfo").Bytes());
  EXPECT_TRUE(WaitUntilTaken(broken));
  EXPECT_TRUE(WaitFor([&] { return SessionThread(agent.pid) != 0; }));
  Sleep(3.5);  // the main thread lets the silent one go, and speaks of it
  if (!Break(agent.pid, SessionThread(agent.pid))) GTEST_SKIP() << "no process can be traced here";
  ASSERT_TRUE(shows("Listening...\n", 2));
  ExpectServed(agent);
  EXPECT_TRUE(agent.Has("log2.txt", "Restarting..\n"));
  EXPECT_FALSE(agent.Has("log2.txt", "Reload request")) << "nothing of that has failed";
  EXPECT_TRUE(agent.Has("verbose.log", "Restarting..\n"));
  EXPECT_TRUE(agent.Has("verbose.log", "\t tav\t\t Reload request received. Executing..\n"));
}

// Cure: what is removed is the file that is held, not the one that the settings name by then.
TEST(Processes, ARestartAfterAFaultRemovesItsOwnPidFileOnly) {
  Agent agent("", {"-d"});
  const pid_t pid = agent.PidInFile();
  agent.Write("tav.cfg", agent.Defaults() + agent.At("pidfile=@/other\n"));
  agent.Write("other", "another's\n");
  const Socket other(open(agent.At("@/other").c_str(), O_RDWR | O_CLOEXEC));
  struct flock lock {};
  lock.l_type = F_WRLCK;
  ASSERT_EQ(0, fcntl(other.Descriptor(), F_SETLK, &lock));
  agent.Expect("ReloadCfg", "200|Ok");
  auto script = agent.Asking("TEST-ShellScript|/bin/sh %script%|sleep 3||20|0");
  EXPECT_TRUE(WaitFor([&] { return !Children(pid).empty(); }));
  ASSERT_TRUE(MakeOld(pid));
  Sleep(1.5);  // whoever keeps up with the settings has done so
  kill(pid, SIGSEGV);
  EXPECT_TRUE(WaitFor([&] { return !fs::exists(agent.At("@/tav.pid")); }));
  EXPECT_TRUE(agent.Shows("Failed to lock pid file", "log2.txt"));
  EXPECT_EQ("another's\n", agent.Read("other"));
  EXPECT_EQ("closed", script.get());
  EXPECT_TRUE(agent.TempFolderIsEmpty());
}

// Cure: children and files of the program before have an owner.
TEST(Processes, RestartsAndEndsLeaveNothingOfTheRequestsUnderWay) {
  for (const char* command : {"ReloadApp", "QUIT"}) {
    Agent agent("");
    for (int i = 0; i < 3; ++i) EXPECT_EQ("200\n0", agent.Ask("TEST-ExternalPrg|sleep 2|||-1"));
    const Socket upgrade = agent.Send("UpgradeCode|300");
    EXPECT_EQ("200", ReadReply(upgrade));
    upgrade.Send(std::string(200, 'n'));
    auto script = agent.Asking("TEST-ShellScript|/bin/sh %script%|sleep 3||20|0");
    EXPECT_TRUE(WaitFor([&] { return std::distance(fs::directory_iterator(agent.At("@/tmp")), {}) == 3; }))
        << "a script, its output, an upgrade";
    agent.Expect(command, "200|Ok");
    EXPECT_EQ("closed", script.get());
    EXPECT_TRUE(agent.TempFolderIsEmpty()) << command;
    if (command == std::string("QUIT")) break;
    EXPECT_TRUE(WaitFor([&] { return Children(agent.pid).empty(); })) << "no zombie stays";
    ExpectServed(agent);
  }
}

}  // namespace
