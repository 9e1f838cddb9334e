// Settings, passwords and configuration files.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client.h"
#include "fake_agent.h"

namespace {

mode_t ModeOf(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

}  // namespace

TEST(TavctlConfig, FindsWhatAnAgentWouldNotTakeOrItsOwnerNotMean) {
  Agent agent;  // for its folder only
  Client client(agent);
  agent.Write("prog", "");
  const std::string good = agent.At(
      "port=1055\npassword=long enough to be\ntavpath=@/prog\nhost=127.0.0.1\n"
      "process=0\ncpuusage=0\ntmpdir=@/tmp\n");
  const struct {
    std::string lines, finding;  // in front of a file that is in order
    int status;                  // and with --strict
  } rows[] = {
      {"", "", 0},
      {"port=70000\n", "c:1: error: port=70000 is no port", 78},
      {"#\nport=2\n", "c:3: warning: 'port' stands in line 2 already; the first one counts", 78},
      {"logsuccess=yes\n", "c:1: warning: logsuccess=yes is neither 0 nor 1; it counts as off", 78},
      {"nosuch=1\n", "c:1: warning: unknown key 'nosuch'", 78},
      {"no equals\n", "c:1: warning: the line holds no '='", 78},
      {"timeout=1s\n", "c:1: warning: timeout=1s is no number; it counts as 1", 78},
      {"comment=x # why\n", "c:1: warning: comment=x # why: what looks like a comment", 78},
      {"filteractive=1\nfilterlist=10.0.0.12\nfiltermarks=1\n",
       "c:2: warning: filterlist: '10.0.0.12' admits 10.0.0.1,", 78},
      {"filteractive=1\nfilterlist=here\nfiltermarks=1\n", "c:1: warning: filteractive=1 with no address", 78},
      {"filteractive=1\nfilterlist=8.8.8.8\nfiltermarks=11\n", "c:3: warning: filtermarks has 2 marks for 1", 78},
      {"manageaddr=10.0.0.1 10.0.0.2\n", "c:1: warning: manageaddr: ", 78},
      {"badlogfile=/nonexistent/log\n", "c:1: warning: badlogfile=/nonexistent/log: there is no folder", 78},
      {"proccntscript=@/none\n", "c:1: warning: proccntscript=@/none does not exist", 78},
  };
  for (const auto& row : rows) {
    agent.Write("c", agent.At(row.lines) + good);
    chmod(agent.At("@/c").c_str(), 0600);
    const Ran ran = client.RunBare("config check c --strict");
    EXPECT_EQ(row.status, ran.status) << row.lines << ran.out << ran.err;
    EXPECT_NE(std::string::npos, ("\n" + ran.out).find(agent.At(row.finding))) << row.lines << "\n" << ran.out;
  }
  agent.Write(
      "c",
      "port=0\ntmpdir=/nonexistent\nhost=192.0.2.1\npassword=short\ncpuusage=1\nexecuteaction=1\ntcpudpaction=1\n"
      "syslogaction=1\n");
  chmod(agent.At("@/c").c_str(), 0644);
  const std::string all =
      client.RunBare("config check -", "sh -c '$* <@/c' sh").out + client.RunBare("config check c").out;
  for (const char* expected : {"c:1: error: port= is missing or 0", "can be read or changed by everybody",
                               "tmpdir=/nonexistent is no folder", "tavpath= is not", "no address of this machine",
                               "password= is shorter", "cpuusagescript is not set", "every test and action is on"})
    EXPECT_NE(std::string::npos, all.find(expected)) << expected << "\n" << all;
  agent.Write("c", good);
  EXPECT_EQ(0, client.RunBare("config check -", "sh -c '$* <@/c' sh").status);
}

TEST(TavctlConfig, InitWritesOneThatIsInOrderAndThatAnAgentStartsWith) {
  Agent agent;
  Client client(agent);
  ASSERT_EQ(0, client.RunBare("config init @/new.cfg --tavpath " + agent.program).status);
  EXPECT_EQ(0600u, ModeOf(agent.At("@/new.cfg")));
  EXPECT_EQ(0700u, ModeOf(agent.At("@/new.cfg.d/tmp")) | ModeOf("/var/lib/tav/tmp"));
  const Ran checked = client.RunBare("config check --strict @/new.cfg");
  EXPECT_EQ(0, checked.status) << checked.out << checked.err;
  const std::string text = agent.Read("new.cfg");
  EXPECT_EQ(66, client.RunBare("config init @/new.cfg").status);
  EXPECT_EQ(text, agent.Read("new.cfg"));
  for (const char* line : {"\nhost=127.0.0.1\n", "/proccnt.sh\n", "one character\n# an address", "\nexternal=0\n"})
    EXPECT_NE(std::string::npos, text.find(line)) << line;
  const std::string other = client.RunBare("config init -").out;
  EXPECT_NE(other.substr(other.find("\npassword=")).substr(0, 30),
            text.substr(text.find("\npassword=")).substr(0, 30));
  agent.Write("tav.cfg", "port=" + std::to_string(agent.port) + "\n" + text + agent.At("pidfile=@/tav.pid\n"));
  chmod(agent.At("@/tav.cfg").c_str(), 0600);
  agent.Launch({"-i"});
  EXPECT_EQ(0, client.RunBare("--agent-config @/tav.cfg ping").status);
}

TEST(TavctlPassword, ComesFromFilesAndPipesThatNobodyElseCouldChangeOrRead) {
  Agent agent;
  agent.Start();
  Client client(agent);
  const std::string port = "-p " + std::to_string(agent.port) + " ";
  const struct {
    mode_t mode;
    gid_t group;
    int file, lent;  // as a password file, and lent by a service manager
  } rows[] = {
      {0600, getegid(), 0, 0},   {0400, getegid(), 0, 0},   {0640, getegid(), 0, 0},   {0440, 12345, 78, 0},
      {0660, getegid(), 78, 78}, {0644, getegid(), 78, 78}, {0604, getegid(), 78, 78},
  };
  agent.Write("c/tav-password", "secret\n");
  const std::string path = agent.At("@/c/tav-password");
  for (const auto& row : rows) {
    ASSERT_EQ(0, chmod(path.c_str(), row.mode));
    if (chown(path.c_str(), static_cast<uid_t>(-1), row.group) != 0) continue;  // not everybody may
    EXPECT_EQ(row.file, client.RunBare(port + "--password-file " + path + " ping").status) << std::oct << row.mode;
    EXPECT_EQ(row.lent, client.RunBare(port + "ping", "env CREDENTIALS_DIRECTORY=@/c").status)
        << std::oct << row.mode;
  }
  const char* const pipe = "sh -c '(sleep 0.1; cat @/pw) | $*' sh";
  EXPECT_EQ(0, client.RunBare(port + "--password-file /dev/stdin ping", pipe).status);
  EXPECT_EQ(0, client.RunBare(port + "--password-file - ping", pipe).status);
  EXPECT_EQ(64, client.RunBare(port + "--password-file - --hosts - ping", pipe).status);
}

TEST(TavctlSettings, TellTheTruthAboutAnOlderAgent) {
  const FakeAgent old([](const std::string& request) {
    if (request.rfind("SetSettings", 0) == 0) return std::string("200");
    return std::string(
        "200\nAgentVersion=1.0\nAvailable tests=UNC%0D%0A\nEnabled tests=1\nAvailable actions=\n"
        "Enabled actions=\nTimeout=4000\nAllowRManage=1\nManageAddr=127.0.0.1\nPassword=secret");
  });
  Agent agent;
  Client client(agent);
  agent.port = old.Port();
  agent.Write("c", "unc=1\nfilecrc=0\npassword=ours\n");
  EXPECT_EQ("unc=1\nfilecrc=(not reported)\n", client.Run("-o plain settings get unc filecrc").out);
  const std::string diff = client.Run("-o plain settings diff @/c").out;
  EXPECT_NE(std::string::npos, diff.find("filecrc\t0\t(not reported)\n")) << diff;
  EXPECT_EQ(std::string::npos, diff.find("ours")) << diff;
  EXPECT_EQ(std::string::npos, diff.find("secret")) << diff;
  EXPECT_EQ(std::string::npos, diff.find("unc\t")) << diff;
  EXPECT_NE(std::string::npos, client.Run("settings export").out.find("# filecrc is not reported"));
  EXPECT_EQ("filecrc\t(not reported)\t1 (not reported)\n", client.Run("-o plain settings set --yes filecrc=1").out);
  const std::string raw = client.Run("raw GetSettings").out;
  EXPECT_EQ(std::string::npos, raw.find("secret")) << raw;
}

TEST(TavctlReload, LooksAtTheFileFirstAndShoutsAboutAnEmptyPassword) {
  Agent agent;
  agent.Start();
  Client client(agent);
  const std::string text = agent.Read("tav.cfg"), port = std::to_string(agent.port);
  chmod(agent.At("@/tav.cfg").c_str(), 0600);
  agent.Write("tav.cfg", "port=1\n" + text);
  const Ran moved = client.Run("--agent-config @/tav.cfg reload");
  EXPECT_EQ(0, moved.status) << moved.err;
  EXPECT_NE(std::string::npos, moved.err.find("port=1 in the file takes a restart")) << moved.err;
  agent.Write("tav.cfg", text + "tavpath=prog\n");
  EXPECT_EQ(78, client.Run("--agent-config @/tav.cfg reload").status);
  agent.Write("tav.cfg", text + "password=\n");
  const Ran emptied = client.Run("-q reload");
  EXPECT_EQ(1, emptied.status);
  EXPECT_NE(std::string::npos, emptied.err.find("EMPTY PASSWORD")) << emptied.err;
}
