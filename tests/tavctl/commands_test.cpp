// Every command once against a real agent, with what it prints for scripts and as JSON; every exit status once.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include "client.h"
#include "client/wirecommands.h"
#include "tavctl/options.h"

namespace {

using Json = nlohmann::json;

const char* const kEverythingOn =
    "executeaction=1\ntcpudpaction=1\nsyslogaction=1\nproccntscript=@/cnt.sh\ncpuusagescript=@/cpu.sh\n"
    "proclistscript=@/list.sh\n";

// "~" in front makes it a regular expression.
bool Fits(const Agent& agent, const std::string& expected, const std::string& got) {
  const std::string wanted = agent.At(expected);
  return wanted[0] == '~' ? std::regex_match(got, std::regex(wanted.substr(1))) : wanted == got;
}

void MakeFiles(const Agent& agent) {
  agent.Write("data/a.txt", "0123456789");
  agent.Write("data/sub/b.txt", "01234");
  agent.Write("data/old.txt", "x", 90);
  agent.Write("hidden/.name", "");
  agent.Write("hidden/a\nb", "");
  agent.Write("bytes/\xff", "");
  agent.Write("s.sh", "echo one; echo \"scriptres: got $*\"; echo three\n");
  agent.Write("cnt.sh", "#!/bin/sh\necho 3\n");
  agent.Write("cpu.sh", "#!/bin/sh\necho 12.5\n");
  agent.Write("list.sh", "#!/bin/sh\necho init\necho sshd\n");
}

class TavctlCommands : public ::testing::Test {
 protected:
  void SetUp() override {
    MakeFiles(agent);
    agent.Start(kEverythingOn);
  }
  Agent agent;
  Client client{agent};
};

}  // namespace

TEST_F(TavctlCommands, PrintOneValueALineAndOneObject) {
  const std::string port = std::to_string(agent.port);
  const struct {
    std::string line, plain, result;  // `result` of the JSON object
  } rows[] = {
      {"ping", "1.30\n", R"({"version":"1.30"})"},
      {"info", "~name=ZO Tavisto\nversion=1.30\n[^]*\nport=" + port + "\n[^]*TCP\t1\n[^]*Syslog\t1\n", ""},
      {"test disk /", "~(\\d+\n){4}", ""},
      {"test file @/data/a.txt", "~@/data/a.txt\n10\n\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\n.*\n0\n", ""},
      {"test crc @/data/a.txt", "1501247545\na684c7c6\n", ""},
      {"test size '@/data/*.txt' -r", "16\n", R"({"size":16})"},
      {"test count @/data '*.txt' -r --older-than 60", "1\n", R"({"count":1})"},
      {"test compare @/data/a.txt @/data/sub/b.txt --contents", "1\n", R"({"equal":true})"},
      {"test compare @/data/a.txt @/data/sub/b.txt", "0\n", R"({"equal":false})"},
      {"test contains @/data/a.txt --text 345", "1\n", R"({"found":true})"},
      {"test contains @/data/a.txt --file @/data/sub/b.txt", "1\n", R"({"found":true})"},
      {"test process sshd", "3\n", R"({"count":3})"},
      {"test cpu", "12.5\n", R"({"load":12.5})"},
      {"test tcp 127.0.0.1 " + port, "~\\d+\n\n", ""},
      {"test udp 127.0.0.1 9 --send x", "~\\d+\n\n", ""},
      {"run -- sh -c 'exit 3'", "3\n", R"({"exit_status":3})"},
      {"script @/s.sh -- 'a b' c", "got a b c\none\nscriptres: got a b c\nthree\n",
       R"({"result":"got a b c","output":["one","scriptres: got a b c","three"]})"},
      {"act run --yes -- sh -c 'exit 4'", "4\n", R"({"exit_status":4})"},
      {"act send --yes 127.0.0.1 " + port + " hello", "Data has been sent\n", R"({"text":"Data has been sent"})"},
      {"act syslog --yes 127.0.0.1 'disk full' --to-port 9", "Syslog: Data to 127.0.0.1 has been sent\n", ""},
      {"ls @/data", "sub/\na.txt\nold.txt\n", R"({"folder":"@/data/","entries":["sub/","a.txt","old.txt"]})"},
      {"ls -a @/hidden", "../\n.name\na\\nb\n", ""},
      {"ls @/hidden", "a\\nb\n", R"({"folder":"@/hidden/","entries":["a\nb"]})"},
      {"ls @/bytes", "\\xff\n",
       "{\"folder\":\"@/bytes/\",\"entries\":[\"\xef\xbf\xbd\"],\"entries_base64\":[\"/w==\"]}"},
      {"ls -l '@/data/a*'", "~---\t10\t.*\ta.txt\n", ""},
      {"ps", "init\nsshd\n", R"({"processes":["init","sshd"]})"},
      {"settings get filecrc", "1\n", R"({"filecrc":true})"},
      {"settings get Port password", "port=" + port + "\npassword=********\n", ""},
      {"settings set --yes comment='web server'", "comment\tweb server\tweb server\n", ""},
      {"settings diff @/tav.cfg", "", R"({"differences":[]})"},
      {"settings export", "~# [^]*\nport=" + port + "\n[^]*comment=web server\n[^]*filecrc=1\n[^]*", ""},
      {"reload", "", "{}"},
      {"raw TEST-FolderSize @/data", "200\n    11\n", ""},
      {"test log @/data/a.txt --match x", "", ""},
      {"expr \"not 'a' or 'b'\" --line c", "not ('a' or 'b')\n1\n",
       R"x({"grouping":"not ('a' or 'b')","matches":true})x"},
      {"config check @/tav.cfg", "~(@/tav.cfg:\\d+: warning: .*\n)+", ""},
      {"restart --yes", "", ""},
  };
  ASSERT_EQ(0, chmod(agent.At("@/tav.cfg").c_str(), 0600));
  for (const auto& row : rows) {
    const Ran json = client.Run("-o json " + row.line);
    const Json object = Json::parse(json.out, nullptr, false);
    ASSERT_TRUE(object.is_object()) << row.line << "\n" << json.out << json.err;
    EXPECT_TRUE(object["ok"]) << row.line << "\n" << json.out;
    EXPECT_EQ(1, object["schema"]);
    const Json expected = Json::parse(agent.At(row.result), nullptr, false);
    EXPECT_EQ(row.result.empty() ? object["result"] : expected, object["result"]) << row.line;
    const Ran plain = client.Run("-q -o plain " + row.line);
    EXPECT_EQ(0, plain.status) << row.line << "\n" << plain.err;
    EXPECT_TRUE(Fits(agent, row.plain, plain.out)) << row.line << "\n" << plain.out;
  }
}

TEST_F(TavctlCommands, ReachAllOfTheWire) {
  for (const TWireCommand& command : WireCommands()) {
    const std::string name = command.name;
    if (name == "QUIT") continue;  // comes last
    const Ran ran = client.Run("-o plain raw --yes " + name);
    EXPECT_TRUE(ran.status == 0 || ran.status == 1) << name << ran.err;
    EXPECT_EQ(std::string::npos, ran.err.find("does not know")) << name << ran.err;
    if (name == "ReloadApp") client.Run("wait --for 5");
  }
  EXPECT_EQ(0, client.Run("stop --yes").status);
  EXPECT_EQ(0, agent.ExitStatus(agent.pid));
  EXPECT_EQ(75, client.Run("wait --for 0.3").status);
}

TEST_F(TavctlCommands, EndWithTheStatusOfWhatWentWrong) {
  agent.Write("open", "secret\n");
  agent.Write("wrong", "wrong\n");
  chmod(agent.At("@/wrong").c_str(), 0600);
  const std::string port = std::to_string(agent.port);
  const Socket silent = ServeTcp(), noise = ServeTcp();
  // Two services that are no agents: one never answers, the other in a language of its own.
  std::thread greeter([&] {
    const Socket peer = Accept(noise);
    (void)!write(peer.Descriptor(), "HTTP/1.1 400 Bad Request\r\n", 26);
  });
  const struct {
    std::string line;
    int status;
    std::string says;
  } rows[] = {
      {"ping", 0, ""},
      {"test disk /nowhere", 1, "(301)"},
      {"raw TEST-Ping", 1, "not implemented yet (500)"},
      {"bogus", 64, "bogus"},
      {"settings get filecrv", 64, "did you mean 'filecrc'?"},
      {"test dsk /", 64, "did you mean 'disk'?"},
      {"-H '' ping", 64, "empty"},
      {"-t 0 ping", 64, "more than 0"},
      {"-j 0 ping", 64, "from 1"},
      {"-H a --hosts b ping", 64, "exclude each other"},
      {"-H 127.0.0.1:1 ping", 64, "different ports"},
      {"stop", 64, "--yes"},
      {"restart", 64, "--yes"},
      {"upgrade /bin/true", 66, "does not say"},
      {"settings set comment=x", 64, "--yes"},
      {"raw ACT-Syslog", 64, "--yes"},
      {"ls @/nothere", 1, "is no folder there"},
      {"test compare @/data/a.txt @/data/old.txt --exit-status", 1, ""},
      {"test contains @/data/a.txt --text nothere --exit-status", 1, ""},
      {"test contains @/data/a.txt --text nothere", 0, ""},
      {"test contains @/data/a.txt --text 345 --exit-status", 0, ""},
      {"test contains @/data/nothere --text x", 1, "File doesn`t exist (301)"},
      {"run --exit-status -- sh -c 'exit 7'", 7, ""},
      {"test size '@/data/*.none'", 0, "no bytes: "},
      {"test count / --older-than x", 64, "whole minutes"},
      {"act run -- true", 64, "--yes"},
      {"settings set --yes port=70000", 64, "70000"},
      {"settings set --yes password=x", 64, "command line"},
      {"settings set --yes shellscript=1", 64, "from afar"},
      {"settings set --yes manageaddr=10.0.0.1,zz", 64, "commas"},
      {"test disk '/tmp/x '", 64, "arrive whole"},
      {"script @/nofile", 66, "nofile"},
      {"-H nosuch.invalid ping", 68, "nosuch.invalid"},
      {"-p 1 ping", 69, "refused"},
      {"-p " + std::to_string(silent.Port()) + " -t 0.3 ping", 75, "nothing for"},
      {"-p " + std::to_string(noise.Port()) + " ping", 65, "no agent"},
      {"--password-file @/wrong ping", 76, "verboselogfile= of an agent started with -v"},
      {"--password-file @/open ping", 78, "chmod 600"},
      {"--password-file @/none ping", 78, "none"},
      {"config check @/open", 78, "errors"},
      {"settings set --yes filecrc=0", 0, ""},
      {"test crc /etc/passwd", 77, "filecrc=1"},
      {"settings set --yes manageaddr=10.1.2.3", 64, "manageaddr leaves out your own address, 127.0.0.1"},
      {"settings set --yes port=" + std::to_string(silent.Port()), 64, "in use"},
      // Set, and therefore not to be read back.
      {"settings set --yes --force manageaddr=10.1.2.3", 77, "warning: manageaddr leaves out"},
  };
  for (const auto& row : rows) {
    const bool own = row.line.find("--password-file") != std::string::npos;
    const Ran ran = own ? client.RunBare("-p " + port + " " + row.line) : client.Run(row.line);
    EXPECT_EQ(row.status, ran.status) << row.line << "\n" << ran.err;
    EXPECT_NE(std::string::npos, ran.err.find(row.says)) << row.line << "\n" << ran.err;
    EXPECT_EQ(std::string::npos, (ran.out + ran.err).find(agent.password)) << row.line;
  }
  greeter.join();
  EXPECT_EQ(78, client.RunBare("-p " + port + " ping").status);  // no password anywhere
}

TEST_F(TavctlCommands, KeepThePasswordToThemselves) {
  std::string proof;
  for (const char byte : Md5(agent.password)) {
    char hex[4];
    snprintf(hex, sizeof hex, "%02x ", static_cast<unsigned char>(byte));
    proof += hex;
  }
  for (const char* line : {"settings get", "settings export", "raw GetSettings", "raw GetSettings --hex", "-v info",
                           "-o json settings get", "-o json raw GetSettings"}) {
    const Ran ran = client.Run(line);
    EXPECT_EQ(0, ran.status) << line;
    EXPECT_EQ(std::string::npos, (ran.out + ran.err).find(agent.password)) << line << "\n" << ran.out;
    EXPECT_EQ(std::string::npos, ran.out.find(proof.substr(0, 12))) << line << "\n" << ran.out;
  }
  EXPECT_EQ(agent.password + "\n", client.Run("-o plain settings get password --show-secrets").out);
}

TEST_F(TavctlCommands, FollowAChangedPortAndPassword) {
  const int next = FreePort();
  const Ran moved = client.Run("-o plain settings set --yes port=" + std::to_string(next));
  EXPECT_EQ(0, moved.status) << moved.err;
  EXPECT_EQ("port\t" + std::to_string(agent.port) + "\t" + std::to_string(next) + "\n", moved.out);
  agent.port = next;
  agent.Write("new", "other word\n");
  chmod(agent.At("@/new").c_str(), 0600);
  EXPECT_EQ(0, client.Run("settings set --yes --new-password-file @/new").status);
  EXPECT_EQ(76, client.Run("ping").status);
  EXPECT_EQ(0, client.RunBare("-p " + std::to_string(next) + " --password-file @/new ping").status);
}

TEST_F(TavctlCommands, AskManyHostsAndEndWithTheWorst) {
  agent.Write("hosts", "127.0.0.1 # this one\n127.0.0.1:1\n\nnosuch.invalid\n127.0.0.1\n");
  const Ran ran = client.Run("--hosts @/hosts -j 3 -o json test size @/data");
  EXPECT_EQ(69, ran.status);
  std::multiset<std::string> kinds;
  std::istringstream lines(ran.out);
  for (std::string line; std::getline(lines, line);) {
    const Json object = Json::parse(line);
    kinds.insert(object["ok"] ? "well" : object["error"]["kind"].get<std::string>());
    EXPECT_TRUE(!object["ok"] || object["result"]["size"] == 11) << line;
    EXPECT_GT(object["elapsed_ms"], 0);
  }
  EXPECT_EQ((std::multiset<std::string>{"unknown-host", "unreachable", "well", "well"}), kinds);
}

TEST_F(TavctlCommands, TellAgesUnderAMinuteAndInTheFuture) {
  agent.Age("data/a.txt", 0);
  const std::string now = client.Run("test file @/data/a.txt").out;
  EXPECT_TRUE(std::regex_search(now, std::regex("\nage +\\d+ s\n"))) << now;
  agent.Age("data/a.txt", -3);
  const std::string later = client.Run("test file @/data/a.txt").out;
  EXPECT_TRUE(std::regex_search(later, std::regex("\nage +in the future by [23] min\n"))) << later;
}

TEST_F(TavctlCommands, SayWhenTheOutputDeviceIsFull) {
  agent.Write("full.log", "line 1\n");
  for (const char* line : {"ping", "--help", "ls --help", "-V", "completion bash", "config init -", "-o json info",
                           "test log @/full.log --match 1 --from-start"})
    EXPECT_EQ(70, client.Run(line, "sh -c 'exec $* >/dev/full' sh").status) << line;
  EXPECT_EQ("line 1\n", client.Run("-q test log @/full.log --match 1 --from-start").out);
}

namespace {

// The text of the manual page's item on a command, or of all that comes before the commands.
std::string ItemOf(const std::string& page, const std::string& command) {
  const size_t commands = page.find(".Sh COMMANDS");
  if (command.empty()) return page.substr(0, commands);
  size_t at = commands;
  do at = page.find("\n.It Cm " + command, at + 1);
  while (at != std::string::npos && page[at + 8 + command.size()] != ' ' && page[at + 8 + command.size()] != '\n');
  if (at == std::string::npos) return "";
  return page.substr(at, std::min(page.find("\n.It", at + 1), page.find("\n.El\n.", at + 1)) - at);
}

bool Mentions(const std::string& text, const std::string& option) {
  return std::regex_search(text, std::regex("Fl " + option.substr(1) + "([ \n]|$)"));
}

}  // namespace

TEST(TavctlHelp, ManualAndCompletionHoldEveryOptionOfTheTables) {
  const std::string page = [] {
    std::ostringstream text;
    text << std::ifstream(TAVCTL_MANUAL).rdbuf();
    return text.str();
  }();
  Agent agent;
  Client client(agent);
  const std::string bash = client.RunBare("completion bash").out, fish = client.RunBare("completion fish").out;
  std::set<std::string> known = {"help", "version"};
  const std::set<std::string> shared = {"--yes", "--max-failures", "--macros",
                                        "--exit-status"};  // told of at first
  const auto compare = [&](const std::string& command, const std::vector<TArgRow>& rows) {
    const Ran help = client.RunBare("help " + command);
    const std::string item = ItemOf(page, command), general = ItemOf(page, "");
    EXPECT_NE("", item) << "no .It Cm " << command << " in tavctl.1";
    EXPECT_FALSE(std::regex_search(help.out, std::regex("[^\n]{81}"))) << help.out;
    for (const TArgRow& row : rows) {
      if (!IsOption(row)) continue;
      const std::string option = KeyOf(row);
      known.insert(option.substr(2));
      EXPECT_NE(std::string::npos, help.out.find(option)) << command;
      EXPECT_TRUE(Mentions(shared.count(option) != 0 ? general : item, option) ||
                  Mentions(item, std::string(row.spelling).substr(0, 2)))
          << "tavctl.1 says nothing of " << option << " at '" << command << "'";
      EXPECT_NE(std::string::npos, bash.find(option)) << command;
      EXPECT_NE(std::string::npos, fish.find(" -l " + option.substr(2))) << command;
      EXPECT_NE(std::string::npos, bash.find(row.choices)) << option;
    }
  };
  compare("", GlobalOptions());
  for (const TCommandRow& row : AllCommands()) compare(row.name, row.args);
  const std::regex option("Fl -([a-z-]+)");
  for (std::sregex_iterator at(page.begin(), page.end(), option), end; at != end; ++at)
    EXPECT_EQ(1u, known.count((*at)[1])) << "tavctl.1 tells of --" << (*at)[1] << ", which is not there";
}
