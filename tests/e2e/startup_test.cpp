// Start and end of the process: what it prints, how it exits, its pid file, restarts and crashes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <regex>

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
  const std::string missed = "Error\nInvalid or missed command line parameter" + kUsage,
                    port = "Error\nInvalid port number" + kUsage;
  const std::string empty =
      "  TCP post is not specified!\n  Password is not specified!\n  Full path to the agent is not specified!\n";
  const auto refused = [](const std::string& cause, const std::string& file) {
    return "Ok\nSettings checking .. Error\n" + cause + "\nPlease check '" + file + "' file\n\n";
  };
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{"-i"}, missed},
      {{"-d", "-v", "-vd"}, missed},
      {{"-vd", "-p"}, missed},
      {{"-p", "0", "bare"}, port},
      {{"-p", "65536", "bare"}, port},
      {{"-i", "-p", "x", "bare"}, port},
      {{"-v", "-d", "bare"}, refused("Cannot open configuration file '-d'", "-d")},
      {{"-vd", "-v", "bare"}, refused("Cannot open configuration file '-v'", "-v")},
      {{"-i", "bare"}, refused(empty, "bare")},
      {{"-i", "nothing"}, refused("FilterMarks has less items than FilterList" + empty, "nothing")},
      {{"-i", "path", "ignored"}, refused("  Invalid path to the agent!\n", "path")},
  };
  for (const auto& [arguments, shown] : rows) {
    EXPECT_EQ(1, agent.Run(arguments)) << shown;
    EXPECT_EQ(shown, BehindBanner(agent));
  }
}

TEST(Startup, TellsEachStepThenListensOrEndsWithFour) {
  Agent plain(""), warned, blocked;
  const Socket taken = ServeTcp(blocked.port);
  const std::string none = "Servname not supported for ai_socktype";
  for (const auto& [line, error] : {std::pair("", "socket() or bind() error"), {"port=70000\n", none.c_str()}}) {
    blocked.Write("tav.cfg", line + blocked.Defaults());
    EXPECT_EQ(4, blocked.Run({"-i", "tav.cfg"})) << line;
    EXPECT_EQ(kLoaded + kCpu + kCiphers + "TCP listen error:\n" + error + "\n\n", BehindBanner(blocked));
  }
  EXPECT_EQ(kLoaded + kCpu + kCiphers + kListens, BehindBanner(plain));
  EXPECT_EQ(0, plain.PidInFile()) << "an interactive agent writes no pid file";

  const std::string port = std::to_string(warned.port);
  warned.Write("tav.cfg", "port=1\n" + warned.Defaults() + "filtermarks=11\n");
  warned.Launch({"-i", "-v", "-vd", "-p", port});
  EXPECT_EQ("Ok\nSettings checking .. Warning: FilterMarks has less items than FilterList\n" + kCpu + kSizes +
                kCiphers + kListens,
            BehindBanner(warned));
  warned.Expect("ReloadCfg", "200|Ok");
  EXPECT_TRUE(warned.Tells("Port=" + port)) << "the command line wins";
}

void ExpectNoStreams(pid_t pid) {
  for (const char* stream : {"/fd/0", "/fd/1", "/fd/2"})
    EXPECT_EQ("/dev/null", std::filesystem::read_symlink("/proc/" + std::to_string(pid) + stream)) << stream;
}

bool IsLocked(const Socket& file) {
  struct flock whole {};
  whole.l_type = F_WRLCK;
  return fcntl(file.Descriptor(), F_GETLK, &whole) == 0 && whole.l_type != F_UNLCK;
}

TEST(Startup, ADaemonLeavesTheTerminalAndLocksItsPidFile) {
  Agent agent;
  agent.Write("tav.pid", "stale, and longer than any number\n");
  agent.StartsBy("exec % 7</");
  agent.Start("", {"-d"});
  ASSERT_TRUE(WaitFor([&] { return agent.PidInFile() > 0; }));
  EXPECT_EQ(0u, BehindBanner(agent).find(kLoaded + kCpu + kCiphers + "Ok\nDaemon started"));
  const pid_t pid = agent.PidInFile();
  const std::string process = "/proc/" + std::to_string(pid), file = agent.At("@/tav.pid");
  ExpectNoStreams(pid);
  EXPECT_EQ(std::filesystem::canonical(agent.folder), std::filesystem::read_symlink(process + "/cwd"));
  for (const auto& entry : std::filesystem::directory_iterator(process + "/fd"))
    EXPECT_NE("/", std::filesystem::read_symlink(entry)) << entry << " is inherited";
  EXPECT_EQ(pid, getsid(pid));
  const Socket reader(open(file.c_str(), O_RDWR | O_CLOEXEC));
  EXPECT_TRUE(IsLocked(reader));
  agent.Ask("TEST-FileCRC|" + file);
  EXPECT_TRUE(IsLocked(reader)) << "a session that closes the file does not cost the lock";

  const Agent second("verboselogfile=verbose.log\npidfile=" + file + "\n", {"-d", "-v"});
  EXPECT_TRUE(second.Shows("Failed to lock pid file " + file + "\n", "log2.txt"));
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
}

TEST(Startup, NothingLandsOnStandardStreamsThatAreMissing) {
  const std::pair<const char*, const char*> rows[] = {{"-d", "exec % <&- >&- 2>&-"},
                                                      {"-i", "exec % <&- >&- 2>&-"},
                                                      {"-d", "exec % >&-"},
                                                      {"-d", "sleep 0.1; % | true"}};
  for (const auto& [mode, commands] : rows) {
    SCOPED_TRACE(std::string(mode) + ": " + commands);
    Agent agent;
    const bool interactive = mode[1] == 'i';
    agent.StartsBy(commands);
    if (interactive) agent.Write("tav.pid", "1");  // shows nothing, so there is nothing to wait for
    agent.Start("verboselogfile=verbose.log\n", {mode, "-v"});
    EXPECT_TRUE(WaitFor([&] { return agent.Serves(); }));
    const pid_t pid = interactive ? agent.pid : agent.PidInFile();
    ExpectNoStreams(pid);
    agent.Expect("ReloadApp", "200|Ok");
    EXPECT_TRUE(interactive || agent.HandsOverFrom(pid));
    EXPECT_TRUE(WaitFor([&] { return agent.Serves(); }));
  }
}

}  // namespace
