// Settings, passwords and configuration files.
#include <sys/stat.h>
#include <unistd.h>

#include "client.h"
#include "fake_agent.h"

using TavctlConfig = Tavctl;

TEST_F(TavctlConfig, CheckFindsWhatAnAgentWouldNotTakeOrItsOwnerNotMean) {
  agent.Write("prog", "");
  const std::string good = agent.At(
      "port=1055\npassword=long enough to be\ntavpath=@/prog\nhost=127.0.0.1\n"
      "process=0\ncpuusage=0\ntmpdir=@/tmp\n");
  // Lines in front of a file that is in order, and what is said of them.
  const std::pair<const char*, const char*> rows[] = {
      {"port=70000\n", "c:1: error: port=70000 is no port"},
      {"#\nport=2\n", "c:3: warning: 'port' stands in line 2 already; the first one counts"},
      {"logsuccess=yes\n", "c:1: warning: logsuccess=yes is neither 0 nor 1; it counts as off"},
      {"nosuch=1\n", "c:1: warning: unknown key 'nosuch'"},
      {"no equals\n", "c:1: warning: the line holds no '='"},
      {"timeout=1s\n", "c:1: warning: timeout=1s is no number; it counts as 1"},
      {"comment=x # why\n", "c:1: warning: comment=x # why: what looks like a comment"},
      {"filteractive=1\nfilterlist=10.0.0.12\nfiltermarks=1\n",
       "c:2: warning: filterlist: '10.0.0.12' admits 10.0.0.1,"},
      {"filteractive=1\nfilterlist=here\nfiltermarks=1\n", "c:1: warning: filteractive=1 with no address"},
      {"filteractive=1\nfilterlist=8.8.8.8\nfiltermarks=11\n", "c:3: warning: filtermarks has 2 marks for 1"},
      {"manageaddr=10.0.0.1 10.0.0.2\n", "c:1: warning: manageaddr: "},
      {"badlogfile=/nonexistent/log\n", "c:1: warning: badlogfile=/nonexistent/log: there is no folder"},
      {"proccntscript=@/none\n", "c:1: warning: proccntscript=@/none does not exist"},
  };
  for (const auto& [lines, finding] : rows) {
    WriteSecret("c", agent.At(lines) + good);
    const Ran ran = RunBare("config check c --strict");
    EXPECT_EQ(78, ran.status) << lines << ran.err;
    EXPECT_THAT("\n" + ran.out, HasSubstr(agent.At(finding))) << lines;
  }
  agent.Write("c", good);
  EXPECT_EQ(0, RunBare("config check -", "sh -c '$* <@/c' sh").status);
  agent.Write("d",
              "port=0\ntmpdir=/nonexistent\nhost=192.0.2.1\npassword=short\ncpuusage=1\nexecuteaction=1\n"
              "tcpudpaction=1\nsyslogaction=1\n");
  const std::string all = RunBare("config check d").out;
  for (const char* expected : {"d:1: error: port= is missing or 0", "can be read or changed by everybody",
                               "tmpdir=/nonexistent is no folder", "tavpath= is not", "no address of this machine",
                               "password= is shorter", "cpuusagescript is not set", "every test and action is on"})
    EXPECT_THAT(all, HasSubstr(expected));
  agent.Write("d", "tmpdir=/tmp\n");
  EXPECT_THAT(RunBare("config check d").out, HasSubstr("tmpdir=/tmp can be written by everybody"));
}

TEST_F(TavctlConfig, InitWritesOneThatIsInOrderAndThatAnAgentStartsWith) {
  const auto mode = [this](const std::string& path) {
    struct stat info {};
    return stat(agent.At(path).c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
  };
  const auto password = [](const std::string& text) { return text.substr(text.find("\npassword="), 30); };
  Expect({{"config init @/new.cfg --tavpath " + agent.program, 0}, {"config check --strict @/new.cfg", 0}});
  EXPECT_EQ(0600u, mode("@/new.cfg"));
  EXPECT_EQ(0700u, mode("@/new.cfg.d/tmp") | mode("/var/lib/tav/tmp"));
  const std::string text = agent.Read("new.cfg");
  Expect({{"config init @/new.cfg", 66}});
  EXPECT_EQ(text, agent.Read("new.cfg"));
  for (const char* line : {"\nhost=127.0.0.1\n", "/proccnt.sh\n", "one character\n# an address", "\nexternal=0\n"})
    EXPECT_THAT(text, HasSubstr(line));
  EXPECT_NE(password(RunBare("config init -").out), password(text));
  WriteSecret("tav.cfg", "port=" + std::to_string(agent.port) + "\n" + text + agent.At("pidfile=@/tav.pid\n"));
  agent.Launch({"-i"});
  EXPECT_EQ(0, RunBare("--agent-config @/tav.cfg ping").status);
}

TEST_F(TavctlConfig, PasswordsComeFromFilesAndPipesThatNobodyElseCouldChangeOrRead) {
  agent.Start();
  const std::string path = agent.At("@/c/tav-password"), port = "-p " + std::to_string(agent.port) + " ";
  agent.Write("c/tav-password", "secret\n");
  // What a password file of that mode and group ends with, and one that is lent by a service manager.
  const gid_t own = getegid();
  const std::tuple<mode_t, gid_t, int, int> rows[] = {
      {0600, own, 0, 0},   {0400, own, 0, 0},   {0640, own, 0, 0},   {0440, 12345, 78, 0},
      {0660, own, 78, 78}, {0644, own, 78, 78}, {0604, own, 78, 78},
  };
  for (const auto& [mode, group, file, lent] : rows) {
    ASSERT_EQ(0, chmod(path.c_str(), mode));
    if (chown(path.c_str(), static_cast<uid_t>(-1), group) != 0) continue;  // not everybody may
    EXPECT_EQ(file, Run("--password-file @/c/tav-password ping").status) << std::oct << mode;
    EXPECT_EQ(lent, RunBare(port + "ping", "env CREDENTIALS_DIRECTORY=@/c").status) << std::oct << mode;
  }
  const char* const pipe = "sh -c '(sleep 0.1; cat @/pw) | $*' sh";
  EXPECT_EQ(0, Run("--password-file /dev/stdin ping", pipe).status);
  EXPECT_EQ(0, Run("--password-file - ping", pipe).status);
  EXPECT_EQ(64, Run("--password-file - --hosts - ping", pipe).status);
}

TEST_F(TavctlConfig, SettingsTellTheTruthAboutAnOlderAgent) {
  const FakeAgent old([](const std::string& request) -> std::string {
    if (request.rfind("SetSettings", 0) == 0) return "200";
    return "200\nAgentVersion=1.0\nAvailable tests=UNC%0D%0A\nEnabled tests=1\nAvailable actions=\n"
           "Enabled actions=\nTimeout=4000\nAllowRManage=1\nManageAddr=127.0.0.1\nPassword=secret";
  });
  agent.port = old.Port();
  agent.Write("c", "unc=1\nfilecrc=0\npassword=ours\n");
  Expect({{"-o plain settings get unc filecrc", 0, "unc=1\nfilecrc=(not reported)\n"},
          {"settings export", 0, "# filecrc is not reported"},
          {"-o plain settings set --yes filecrc=1", 0, "filecrc\t(not reported)\t1 (not reported)\n"},
          {"raw GetSettings", 0}});
  const std::string diff = Run("-o plain settings diff @/c").out;
  EXPECT_THAT(diff, HasSubstr("filecrc\t0\t(not reported)\n"));
  for (const char* hidden : {"ours", "secret", "unc\t"}) EXPECT_THAT(diff, Not(HasSubstr(hidden)));
}

TEST_F(TavctlConfig, ReloadLooksAtTheFileFirstAndShoutsAboutAnEmptyPassword) {
  agent.Start();
  const std::string text = agent.Read("tav.cfg");
  WriteSecret("tav.cfg", "port=1\n" + text);
  Expect({{"--agent-config @/tav.cfg reload", 0, "port=1 in the file takes a restart"}});
  WriteSecret("tav.cfg", text + "tavpath=prog\n");
  Expect({{"--agent-config @/tav.cfg reload", 78}});
  WriteSecret("tav.cfg", text + "password=\n");
  Expect({{"-q reload", 1, "EMPTY PASSWORD"}});
}
