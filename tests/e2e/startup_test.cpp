// Start and end of the process: what it prints, how it exits, its pid file, restarts and crashes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <regex>
#include <sstream>

#include "agent_fixture.h"

namespace {

const std::string kUsage = R"(

 Usage: tav [-d|-i] [-v|-vd] [-p <port>] <cfg_file>
  -d        - daemon mode (default)
  -i        - interactive mode
  -v        - verbose mode
  -vd       - verbose debugging mode
  -p <port> - overrides TCP port number specified in cfg_file
  cfg_file  - obligatory parameter, path to configuration file

 Examples:
  tav -i -v -p 1055 /etc/tav/tav.cfg
  tav -d ~/tav/tav.cfg

)";
const std::string kLoaded = "Ok\nSettings checking .. Ok\n",
                  kSizes = "stat.size: 8\nsrec.size: 8\nint64 = long long\n";
const std::string kCpu = "CPU testing .. Ok\n", kListens = "Ok\n[]tav\t\t Listening...\n";
const std::string kCiphers = "Basic encyption checking .. Ok\nTAV encyption checking .. Ok\nSock testing .. ";

// What the console shows behind the banner, with the times of its messages taken out.
std::string BehindBanner(const Agent& agent) {
  static const std::regex banner(
      R"(^-{61}\n Application:  TAV \(Tavisto for Belvane\)\n Version:      1\.30 for )"
      R"(Linux \(Red Hat, Mandrake, SuSE\)\n( [A-Z][^\n]+\n){3}-{61}\nCommand line checking \.\. )");
  const std::string text = agent.Console(), rest = std::regex_replace(text, banner, "");
  if (rest.size() == text.size()) return "no banner: " + text;
  return std::regex_replace(rest, std::regex("\\[tav\\]\\[[0-2][0-9]:[0-5][0-9]:[0-5][0-9]\\]\t "), "[]");
}

TEST(Startup, WrongCommandLinesAndConfigurationsEndWithOne) {
  Agent agent;
  agent.Write("nothing", "");
  agent.Write("bare", "filterlist=1\nfiltermarks=1\n");
  agent.Write("path", "filterlist=1\nfiltermarks=1\nport=1\npassword=p\ntavpath=/no/such\n");
  std::map<std::string, std::string> shown = {
      {"missed", "Error\nInvalid or missed command line parameter" + kUsage},
      {"port", "Error\nInvalid port number" + kUsage}};
  // A cause and the name of the file; in a cause "^" stands for a line feed.
  for (const Exchange& cause :
       Rows(R"(-d => Cannot open configuration file '-d' ; -v => Cannot open configuration file '-v'
    bare =>   TCP post is not specified!^  Password is not specified!^  Full path to the agent is not specified!^
    nothing => FilterMarks has less items than FilterList  TCP post is not specified!^  Password is not specified!^  Full path to the agent is not specified!^
    path =>   Invalid path to the agent!^)")) {
    shown[cause.request] = "Ok\nSettings checking .. Error\n" +
                           std::regex_replace(cause.reply, std::regex("\\^"), "\n") + "\nPlease check '" +
                           cause.request + "' file\n\n";
  }
  for (const Exchange& row : Rows(R"(-i => missed ; -d|-v|-vd => missed ; -vd|-p => missed ; -p|0|bare => port
    -p|65536|bare => port ; -i|-p|x|bare => port ; -v|-d|bare => -d ; -vd|-v|bare => -v
    -i|bare => bare ; -i|nothing => nothing ; -i|path|ignored => path)")) {
    std::vector<std::string> arguments;
    std::istringstream words(row.request);
    for (std::string word; std::getline(words, word, '|');) arguments.push_back(word);
    EXPECT_EQ(1, agent.Run(arguments)) << row.request;
    EXPECT_EQ(shown[row.reply], BehindBanner(agent)) << row.request;
  }
}

TEST(Startup, TellsEachStepThenListensOrEndsWithFour) {
  Agent plain(""), warned, blocked;
  const Socket taken = ServeTcp(blocked.port);
  blocked.Write("tav.cfg", blocked.Defaults());
  EXPECT_EQ(4, blocked.Run({"-i", "tav.cfg"}));
  EXPECT_EQ(kLoaded + kCpu + kCiphers + "TCP listen error:\nsocket() or bind() error\n\n", BehindBanner(blocked));
  EXPECT_EQ(kLoaded + kCpu + kCiphers + kListens, BehindBanner(plain));
  EXPECT_EQ(0, plain.PidInFile()) << "an interactive agent writes no pid file";

  const std::string port = std::to_string(warned.port);
  warned.Write("tav.cfg", "port=1\n" + warned.Defaults() + "filtermarks=11\n");
  warned.Launch({"-i", "-v", "-vd", "-p", port});
  EXPECT_EQ("Ok\nSettings checking .. Warning: FilterMarks has less items than FilterList\n" + kCpu + kSizes +
                kCiphers + kListens,
            BehindBanner(warned));
  warned.Expect("ReloadCfg", "200|Ok");
  EXPECT_NE(std::string::npos, warned.Ask("GetInfo").find("\nPort=" + port + "\n")) << "the command line wins";
}

TEST(Startup, ADaemonLeavesTheTerminalAndLocksItsPidFile) {
  Agent agent;
  agent.Write("tav.pid", "stale, and longer than any number\n");
  const Socket inherited(open("/", O_RDONLY | O_DIRECTORY));
  agent.Start("", {"-d"});
  ASSERT_TRUE(WaitFor([&] { return agent.PidInFile() > 0; }));
  EXPECT_EQ(0u, BehindBanner(agent).find(kLoaded + kCpu + kCiphers + "Ok\nDaemon started"));
  const pid_t pid = agent.PidInFile();
  const std::string process = "/proc/" + std::to_string(pid), file = agent.At("@/tav.pid");
  for (const char* stream : {"/fd/0", "/fd/1", "/fd/2"}) {
    EXPECT_EQ("/dev/null", std::filesystem::read_symlink(process + stream)) << stream;
  }
  EXPECT_EQ(std::filesystem::canonical(agent.folder), std::filesystem::read_symlink(process + "/cwd"));
  for (const auto& entry : std::filesystem::directory_iterator(process + "/fd"))
    EXPECT_NE("/", std::filesystem::read_symlink(entry)) << entry << " is inherited";
  EXPECT_EQ(pid, getsid(pid));
  const auto lock = [](const Socket& at, int command) {
    struct flock whole {};
    whole.l_type = F_WRLCK;
    return fcntl(at.Descriptor(), command, &whole) == 0 ? whole.l_pid : -1;
  };
  const Socket reader(open(file.c_str(), O_RDWR | O_CLOEXEC));
  EXPECT_EQ(pid, lock(reader, F_GETLK));
  agent.Ask("TEST-FileCRC|" + file);  // loses the lock
  EXPECT_TRUE(WaitFor([&] { return lock(reader, F_GETLK) == pid; }));

  const Agent second("verboselogfile=verbose.log\npidfile=" + file + "\n", {"-d", "-v"});
  EXPECT_NE(std::string::npos, second.Read("log2.txt").find("Failed to lock pid file " + file + "\n"));
  EXPECT_EQ(std::to_string(pid) + "\n", agent.Read("tav.pid")) << "the second agent must not touch it";

  agent.Expect("ReloadApp", "200|Ok");
  EXPECT_TRUE(agent.HandsOverFrom(pid)) << "a new process";
  agent.Expect("QUIT", "200|Ok");
  EXPECT_TRUE(WaitFor([&] { return !std::filesystem::exists(file); }));

  agent.Launch({"-d"});
  std::filesystem::rename(file, agent.At("@/moved"));
  agent.Write("tav.pid", "another's\n");
  agent.Expect("QUIT", "200|Ok");
  EXPECT_TRUE(WaitFor([&] { return agent.Ask("GetInfo") == "refused"; }));
  EXPECT_EQ("another's\n", agent.Read("tav.pid")) << "another has put its own in the place";

  agent.Launch({"-d"});
  const Socket other(open(file.c_str(), O_RDWR | O_CLOEXEC));
  EXPECT_TRUE(WaitFor([&] { return agent.Ask("TEST-FileCRC|" + file) != "" && lock(other, F_SETLK) == 0; }));
  agent.Expect("QUIT", "200|Ok");
  EXPECT_TRUE(WaitFor([&] { return agent.Ask("GetInfo") == "refused"; }));
  EXPECT_TRUE(std::filesystem::exists(file)) << "it has become another's";
}

TEST(Startup, NothingLandsOnStandardStreamsThatAreMissing) {
  const std::pair<const char*, const char*> rows[] = {
      {"-d", " <&- >&- 2>&-"}, {"-i", " <&- >&- 2>&-"}, {"-d", " >&-"}, {"-d", " | true"}};
  for (const auto& [mode, streams] : rows) {
    Agent agent;
    const std::string line = AgentBinary() + " \"$@\"" + streams;
    agent.program = agent.At("@/start");
    agent.Write("start", streams[1] == '|' ? "#!/bin/sh\nsleep 0.1;" + line : "#!/bin/sh\nexec " + line);
    agent.Write("tav.cfg", agent.Defaults() + "verboselogfile=verbose.log\n");
    if (mode[1] == 'i') agent.Write("tav.pid", "1");  // shows nothing, so there is nothing to wait for
    agent.Launch({mode, "-v"});
    EXPECT_TRUE(WaitFor([&] { return FirstLine(agent.Ask("GetInfo")) == "200"; })) << mode << streams;
    const pid_t pid = mode[1] == 'i' ? agent.pid : agent.PidInFile();
    for (const char* stream : {"/fd/0", "/fd/1", "/fd/2"}) {
      EXPECT_EQ("/dev/null", std::filesystem::read_symlink("/proc/" + std::to_string(pid) + stream)) << streams;
    }
    agent.Expect("ReloadApp", "200|Ok");
    EXPECT_TRUE(mode[1] == 'i' || agent.HandsOverFrom(pid)) << streams;
    EXPECT_TRUE(WaitFor([&] { return FirstLine(agent.Ask("GetInfo")) == "200"; })) << mode << streams;
  }
}

TEST(Startup, FailedRestartsLeaveAllElseAsItWas) {
  Agent agent;
  agent.program = agent.At("@/start");
  agent.Write("start", "#!/bin/sh\nulimit -S -n 256; exec " + AgentBinary() + " \"$@\"\n");
  agent.Start("tavpath=@/tav.cfg\n");
  const std::string process = "../../proc/" + std::to_string(agent.pid);
  const std::string limits = agent.Read(process + "/limits");
  Socket waiting = Connect(agent.port);
  agent.Expect("ReloadApp", "200|Ok");
  EXPECT_TRUE(agent.Shows("Error: cannot start new instance\n"));
  agent.Expect("GetInfo", "refused");
  EXPECT_EQ(limits, agent.Read(process + "/limits"));
  EXPECT_EQ(std::string::npos, limits.find(" 256 ")) << "the soft limit was raised";
  kill(agent.pid, SIGSEGV);
  EXPECT_TRUE(agent.Shows("Segmentation fault!!\n"));
  waiting.Send(Seal("QUIT\r\n", agent.password, "session").Bytes());
  EXPECT_EQ("200\nOk", ReadReply(waiting, "session")) << "it stays, with its port closed";
}

}  // namespace
