// Settings and their file under storms, kills and full disks.
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <functional>

#include "faults.h"

namespace {

// Cure: a load works on a copy aside and publishes it whole; a change and its save are one under the same lock.
TEST(Configuration, AStormOfReloadsShowsNoHalfLoadedState) {
  Agent agent("comment=v\nlogfails=0\nlogsuccess=1\nudp=0\ntimeout=4321\noklogfile=ok\n", {"-d"});
  std::atomic<bool> over{false};
  std::atomic<int> shown{0};
  const auto expectWhole = [&](const std::string& comment) {
    const std::string all = agent.Ask("GetSettings") + "\n";
    for (const std::string line : {"Password=secret\n", "LogBadConn=0\n", "LogOkConn=1\n", "OkLogFile=ok\n",
                                   "Enabled tests=1011111111111\n", "Timeout=4321\n", comment.c_str()}) {
      EXPECT_NE(std::string::npos, all.find("\n" + line)) << line << all;
    }
    ++shown;
  };
  const std::function<void(int)> parts[] = {
      [pid = agent.PidInFile()](int) { kill(pid, SIGHUP), Sleep(0.0005); },
      [&](int) { EXPECT_EQ("200\nOk", agent.Ask("ReloadCfg")); },
      [&](int) { expectWhole("Comment=v"); },
      [&](int round) {
        const std::string comment = "Comment=v" + std::to_string(round);
        EXPECT_EQ("200", agent.Ask("SetSettings|" + comment));
        expectWhole(comment + "\n");
      },
      [&](int) {  // a stranger, with the proof of an empty password
        const Socket socket = Connect(agent.port);
        socket.Send(Seal("GetInfo\r\n", "", "session").Bytes());
        EXPECT_EQ("closed", ReadReply(socket, "session"));
      },
  };
  std::vector<std::future<void>> running;
  for (const auto& part : parts) {
    running.push_back(std::async(std::launch::async, [&over, &part] {
      for (int round = 0; !over; ++round) part(round);
    }));
  }
  Sleep(3);
  over = true;
  running.clear();
  EXPECT_GT(shown, 20);
}

// Values of every length up to 900 bytes, no two alike.
std::string NumberedText(int n) { return "n" + std::to_string(n) + "." + std::string(static_cast<size_t>(n * 37 % 900), 'x'); }

// Cure: the new file is written aside with its rights, synced and renamed; the path is never without a whole file.
TEST(Configuration, IsWholeWheneverASaveIsKilled) {
  Agent agent("comment=" + NumberedText(0) + "\n");
  const std::string path = agent.At("@/tav.cfg");
  const uid_t owner = geteuid() == 0 ? 1 : geteuid();
  ASSERT_EQ(0, chown(path.c_str(), owner, static_cast<gid_t>(-1)));
  ASSERT_EQ(0, chmod(path.c_str(), 0640));
  EXPECT_EQ("200", agent.Ask("SetSettings|Comment=" + NumberedText(0)));
  const std::string first = agent.Read("tav.cfg"), head = first.substr(0, first.find("n0.")), tail = first.substr(head.size() + 3);
  int saved = 0, sent = 0;
  for (int round = 0; round < 25; ++round) {
    const auto killer = std::async(std::launch::async, [&] { Sleep(0.02 + round * 0.0017), kill(agent.pid, SIGKILL); });
    while (agent.Ask("SetSettings|Comment=" + NumberedText(++sent)) == "200") saved = sent;
    killer.wait();
    EXPECT_EQ(256 + SIGKILL, agent.ExitStatus(agent.pid));
    const std::string now = agent.Read("tav.cfg");
    if (now == head + NumberedText(sent) + tail) saved = sent;
    EXPECT_EQ(head + NumberedText(saved) + tail, now) << "when " << sent << " was sent";
    struct stat status {};
    EXPECT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(0640u, status.st_mode & 07777u);
    EXPECT_EQ(owner, status.st_uid);
    fs::remove(agent.At("@/console"));
    agent.Launch({"-i"});
  }
  EXPECT_GT(saved, 25);
  EXPECT_EQ("200", agent.Ask("SetSettings|Comment=last")) << "what the kills have left is no obstacle";
  EXPECT_FALSE(fs::exists(path + ".New"));
}

// Cure: every write, flush and close is checked; what failed is removed.
void ExpectAFullDiskToBeTold(bool& possible) {
  Agent agent;
  possible = unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
             mount("tmpfs", agent.folder.c_str(), "tmpfs", 0, "size=256k") == 0;
  if (!possible) return;
  const std::shared_ptr<void> mounted(nullptr, [&](void*) { umount2(agent.folder.c_str(), MNT_DETACH); });
  fs::create_directory(agent.At("@/tmp"));
  Start(agent, "");
  const std::string before = agent.Read("tav.cfg");
  agent.Write("full", std::string(1000000, 'x'));
  EXPECT_EQ(agent.At("300\nCannot create new configuration file '@/tav.cfg.New'"), agent.Ask("SetSettings|Comment=new"));
  EXPECT_EQ(before, agent.Read("tav.cfg"));
  EXPECT_FALSE(fs::exists(agent.At("@/tav.cfg.New")));
  EXPECT_EQ("301\ncannot create temp file", agent.Ask("TEST-ShellScript|/bin/sh %script%|true||5|0"));
  std::string reply;
  const Socket upgrade = Open(agent, "UpgradeCode\r\n300\r\n", reply);
  upgrade.Send(std::string(300, 'n'));
  EXPECT_EQ("300\nWrite error", ReadReply(upgrade, "session"));
  EXPECT_TRUE(agent.TempFolderIsEmpty());
  fs::remove(agent.At("@/full"));
  EXPECT_EQ("200", agent.Ask("SetSettings|Comment=new"));
  EXPECT_EQ(before, agent.Read("tav.cfg.Old"));
}

TEST(Configuration, AFullDiskIsToldAndCostsNothing) {
  bool possible = false;
  std::thread([&] { ExpectAFullDiskToBeTold(possible); }).join();  // the mount is the thread's and its children's
  if (!possible) GTEST_SKIP() << "no small disk can be mounted here";
}

// Cure: such a port counts as one that cannot be opened, and the old listener serves until a new one stands.
TEST(Configuration, PortsOutOfRangeFallBack) {
  Agent agents[2];
  const std::string ports[] = {"65536", "-1"};
  for (int i : {0, 1}) {
    Start(agents[i], "");
    EXPECT_EQ("200", agents[i].Ask("SetSettings|Port=" + ports[i]));
    EXPECT_EQ(0u, agents[i].Read("tav.cfg").find("port=" + ports[i] + "\r\n"));
  }
  for (const Agent& agent : agents) {
    for (const Stopwatch watch; agent.Count("Return to original port\n") == 0 && watch.Seconds() < kDeadline; Sleep(0.1)) ExpectServed(agent);
    EXPECT_TRUE(Tells(agent, "Port=" + std::to_string(agent.port)));
  }
}

}  // namespace
