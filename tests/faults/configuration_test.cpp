// Settings and their file under storms, kills and full disks.
#include <signal.h>
#include <sys/stat.h>

#include <functional>

#include "faults.h"

namespace {

// Cure: a load works on a copy aside and publishes it whole; a change and its save are one under the same lock.
TEST(Configuration, AStormOfReloadsShowsNoHalfLoadedState) {
  Agent agent("comment=v\nlogfails=0\nlogsuccess=1\nudp=0\ntimeout=4321\noklogfile=ok\n", {"-d"});
  const std::string info =
      "Enabled tests=1011111111111\nPort=" + std::to_string(agent.port) + "\nTimeout=4321\nComment=v";
  const std::string rest = "LogOkConn=1\nLogBadConn=0\nOkLogFile=ok\nBadLogFile=log2.txt\nPassword=secret\n";
  const auto expectWhole = [&](const std::string& version) {
    const std::string all = agent.Ask("GetSettings");
    EXPECT_TRUE(all.find(info + version) != std::string::npos) << all;
    EXPECT_TRUE(all.find(rest) != std::string::npos) << all;
  };
  const std::function<void(int)> parts[] = {
      [pid = agent.PidInFile()](int) { kill(pid, SIGHUP), Sleep(0.0005); },
      [&](int) { EXPECT_EQ("200\nOk", agent.Ask("ReloadCfg")); },
      [&](int) { expectWhole(""); },
      [&](int round) {
        EXPECT_EQ("200", agent.Ask("SetSettings|Comment=v" + std::to_string(round)));
        expectWhole(std::to_string(round) + "\n");
      },
      [&](int) {  // a stranger, with the proof of an empty password
        const Socket socket = Connect(agent.port);
        socket.Send(Seal("GetInfo\r\n", "").Bytes());
        EXPECT_EQ("closed", ReadReply(socket));
      },
  };
  std::vector<std::future<void>> running;
  const Stopwatch watch;
  for (const auto& part : parts) {
    running.push_back(std::async(std::launch::async, [&watch, &part] {
      for (int round = 0; watch.Seconds() < 3; ++round) part(round);
    }));
  }
  running.clear();
}

// Cure: the main thread waits for no load and no save, not even to put a port back that cannot be opened.
TEST(Configuration, SlowLoadsAndSavesHoldUpNobodyElse) {
  Agent agent("", {"-d"});
  std::string comments;
  while (comments.size() < (Sanitized() ? 2000000 : 12000000)) comments += "# " + std::string(98, 'c') + "\n";
  agent.Append("tav.cfg", comments);
  const Socket taken = ServeTcp();
  std::atomic<bool> over{false};
  const auto hangups = std::async(std::launch::async, [&, pid = agent.PidInFile()] {
    for (; !over; Sleep(0.01)) kill(pid, SIGHUP);
  });
  const auto change = std::async(std::launch::async, [&] {
    EXPECT_EQ("200", agent.Ask("SetSettings|Comment=new|Port=" + std::to_string(taken.Port())));
    EXPECT_TRUE(agent.Shows("Return to original port", "log2.txt"));
    over = true;
  });
  double answers = 0;
  const Stopwatch watch;
  for (; !over; ++answers) EXPECT_TRUE(agent.Serves());
  EXPECT_GT(answers, watch.Seconds() * (Sanitized() ? 2 : 20));
}

// Values of many lengths, no two alike.
std::string Numbered(int n) {
  return "n" + std::to_string(n) + "." + std::string(static_cast<size_t>(n * 37 % 900), 'x');
}

// Cure: the new file is written aside with its rights, synced and renamed; the path is never without a whole file.
TEST(Configuration, IsWholeWheneverASaveIsKilled) {
  Agent agent("comment=n0.\n");
  const std::string path = agent.At("@/tav.cfg");
  const uid_t owner = geteuid() == 0 ? 1 : geteuid();
  ASSERT_TRUE(chown(path.c_str(), owner, static_cast<gid_t>(-1)) == 0);
  ASSERT_TRUE(chmod(path.c_str(), 0640) == 0);
  EXPECT_EQ("200", agent.Ask("SetSettings|Comment=n0."));
  const std::string first = agent.Read("tav.cfg"), head = first.substr(0, first.find("n0."));
  const std::string tail = first.substr(head.size() + 3);
  int saved = 0;
  for (int round = 0; round < 25; ++round) {
    const Stopwatch save;
    EXPECT_EQ("200", agent.Ask("SetSettings|Comment=" + Numbered(++saved)));
    const double delay = save.Seconds() * round / 8;  // from the first bytes of a save to the end of the third
    const auto killer = std::async(std::launch::async, [&] {
      for (const Stopwatch watch; watch.Seconds() < delay;) {
        const std::string now = agent.Read("tav.cfg");
        EXPECT_TRUE(now.rfind(head, 0) == 0) << "meanwhile: " << now;
        EXPECT_TRUE(now.rfind(tail) == now.size() - tail.size()) << "meanwhile: " << now;
      }
      kill(agent.pid, SIGKILL);
    });
    int sent = saved + 1;
    while (agent.Ask("SetSettings|Comment=" + Numbered(sent)) == "200") saved = sent++;
    killer.wait();
    EXPECT_EQ(256 + SIGKILL, agent.ExitStatus());
    if (agent.Read("tav.cfg") == head + Numbered(sent) + tail) saved = sent;
    EXPECT_EQ(head + Numbered(saved) + tail, agent.Read("tav.cfg")) << "when " << sent << " was sent";
    struct stat status {};
    EXPECT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(0640u, status.st_mode & 07777u);
    EXPECT_EQ(owner, status.st_uid);
    agent.Launch({"-i"});
  }
  EXPECT_EQ("200", agent.Ask("SetSettings|Comment=last")) << "what the kills have left is no obstacle";
  EXPECT_FALSE(fs::exists(path + ".New"));
}

// Cure: the signal for a file at its size limit is ignored; every write, flush and close is checked, and what
// failed is removed.
TEST(Configuration, AFileSizeLimitIsToldAndCostsNothing) {
  Agent agent;
  agent.StartsBy("ulimit -f 8; exec %");  // 4096 bytes
  agent.Start();
  const std::string before = agent.Read("tav.cfg");
  std::string request = "SetSettings";
  for (const char* name : {"Comment", "IPFilterMarks", "OkLogFile", "IPFilterAddr", "BadLogFile"})
    request += std::string("|") + name + "=" + std::string(900, '1');
  agent.Expect(request, "300|Cannot create new configuration file '@/tav.cfg.New'");
  EXPECT_EQ(before, agent.Read("tav.cfg"));
  EXPECT_FALSE(fs::exists(agent.At("@/tav.cfg.New")));
  agent.Expect("TEST-ShellScript|/bin/sh %script%|" + std::string(9000, '#') + "||5|0",
               "301|cannot create temp file");
  EXPECT_EQ("300\nWrite error", agent.Upgrade(std::string(9000, 'n')));
  EXPECT_TRUE(agent.TempFolderIsEmpty());
  while (agent.Read("console").size() < 4000) ExpectServed(agent);
  ExpectServed(agent, 5);
}

// Cure: a text is overwritten wherever it is let go of.
TEST(Configuration, AChangedPasswordLeavesNoTraceInMemory) {
  if (Sanitized()) GTEST_SKIP() << "a sanitizer fills too much memory to read";
  const std::string gone = "Kestrel-on-the-north-tower", kept = "Heron-gate";
  Agent agent;
  agent.password = gone;
  agent.Start("comment=" + std::string(900, 'c') + "\n");
  for (const char* request : {"GetSettings", "SetSettings|Comment=other", "ReloadCfg", "GetSettings", "TEST-UNC|/"})
    EXPECT_EQ("200", FirstLine(agent.Ask(request))) << request;
  agent.Expect("SetSettings|Password=" + kept, "200");
  agent.password = kept;
  agent.Expect("ReloadCfg", "200|Ok");
  const auto remembers = [&agent](const std::string& text) {
    const std::vector<TMemory> parts = MemoryOf(agent.pid, true);
    return std::any_of(parts.begin(), parts.end(),
                       [&](const TMemory& part) { return part.bytes.find(text) != std::string::npos; });
  };
  EXPECT_TRUE(remembers(kept)) << "the search finds what is there";
  // A freed block loses its first bytes to the allocator, one that is used again those that the new password takes.
  EXPECT_TRUE(WaitFor([&] { return !remembers(gone.substr(kept.size() + 1)); }))
      << "the last reader lets go within a second";
}

}  // namespace
