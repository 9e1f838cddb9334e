// Every command once against a real agent, with what it prints for scripts and as JSON; every exit status once.
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <thread>

#include "client.h"
#include "client/wirecommands.h"
#include "tavctl/options.h"

namespace {

using Json = nlohmann::json;

class TavctlCommands : public Tavctl {
 protected:
  TavctlCommands() {
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
    agent.Start(
        "executeaction=1\ntcpudpaction=1\nsyslogaction=1\nproccntscript=@/cnt.sh\n"
        "cpuusagescript=@/cpu.sh\nproclistscript=@/list.sh\n");
  }
};

}  // namespace

TEST_F(TavctlCommands, PrintOneValueALineAndOneObject) {
  const std::string port = std::to_string(agent.port);
  // What "plain" prints, a regular expression behind "~", and the "result" of the JSON object.
  const std::tuple<std::string, std::string, std::string> rows[] = {
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
  WriteSecret("tav.cfg", agent.Read("tav.cfg"));
  for (const auto& [line, expected, result] : rows) {
    const Ran json = Run("-o json " + line), plain = Run("-q -o plain " + line);
    const Json object = Json::parse(json.out, nullptr, false),
               wanted = Json::parse(agent.At(result), nullptr, false);
    ASSERT_TRUE(object.is_object()) << line << "\n" << json.out << json.err;
    EXPECT_TRUE(object["ok"] == true) << line << "\n" << json.out;
    EXPECT_TRUE(object["schema"] == 1) << line << "\n" << json.out;
    EXPECT_EQ(result.empty() ? object["result"] : wanted, object["result"]) << line;
    EXPECT_EQ(0, plain.status) << line << "\n" << plain.err;
    const std::string text = agent.At(expected);
    EXPECT_TRUE(text[0] == '~' ? std::regex_match(plain.out, std::regex(text.substr(1))) : text == plain.out)
        << line << "\nwanted: " << text << "\ngot: " << plain.out;
  }
}

TEST_F(TavctlCommands, ReachAllOfTheWire) {
  for (const TWireCommand& command : WireCommands()) {
    const std::string name = command.name;
    if (name == "QUIT") continue;  // comes last
    const Ran ran = Run("-o plain raw --yes " + name);
    EXPECT_TRUE(ran.status == 0 || ran.status == 1) << name << ran.err;
    EXPECT_THAT(ran.err, Not(HasSubstr("does not know"))) << name;
    if (name == "ReloadApp") Run("wait --for 5");
  }
  Expect({{"stop --yes", 0}, {"wait --for 0.3", 75}});
  EXPECT_EQ(0, agent.ExitStatus());
}

TEST_F(TavctlCommands, EndWithTheStatusOfWhatWentWrong) {
  agent.Write("open", "secret\n");
  WriteSecret("wrong", "wrong\n");
  const Socket silent = ServeTcp(), noise = ServeTcp();
  // Two services that are no agents: one never answers, the other in a language of its own.
  std::thread greeter([&] {
    const Socket peer = Accept(noise);
    (void)!write(peer.Descriptor(), "HTTP/1.1 400 Bad Request\r\n", 26);
  });
  Expect({
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
      {"settings set --yes port=65536", 64, "65536"},
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
  });
  greeter.join();
  EXPECT_EQ(78, RunBare("ping").status) << "no password anywhere";
}

TEST_F(TavctlCommands, KeepThePasswordToThemselves) {
  std::string proof;
  for (const char byte : Md5(agent.password).substr(0, 4)) {
    char hex[4];
    snprintf(hex, sizeof hex, "%02x ", static_cast<unsigned char>(byte));
    proof += hex;
  }
  Expect({{"settings get", 0},
          {"settings export", 0},
          {"raw GetSettings", 0},
          {"-v info", 0},
          {"-o json settings get", 0},
          {"-o json raw GetSettings", 0}});
  EXPECT_THAT(Run("raw GetSettings --hex").out, Not(HasSubstr(proof)));
  EXPECT_EQ(agent.password + "\n", Run("-o plain settings get password --show-secrets").out);
}

TEST_F(TavctlCommands, FollowAChangedPortAndPassword) {
  const std::string before = std::to_string(agent.port), next = std::to_string(FreePort());
  Expect({{"-o plain settings set --yes port=" + next, 0, "port\t" + before + "\t" + next + "\n"}});
  agent.port = std::stoi(next);
  WriteSecret("new", "other word\n");
  Expect({{"settings set --yes --new-password-file @/new", 0}, {"ping", 76}, {"--password-file @/new ping", 0}});
}

TEST_F(TavctlCommands, AskManyHostsAndEndWithTheWorst) {
  agent.Write("hosts", "127.0.0.1 # this one\n127.0.0.1:1\n\nnosuch.invalid\n127.0.0.1\n");
  const Ran ran = Run("--hosts @/hosts -j 3 -o json test size @/data");
  EXPECT_EQ(69, ran.status);
  std::multiset<std::string> kinds;
  for (const std::string& line : LinesOf(ran.out)) {
    const Json object = Json::parse(line);
    kinds.insert(object["ok"] ? object["result"].dump() : object["error"]["kind"].get<std::string>());
    EXPECT_GT(object["elapsed_ms"], 0);
  }
  const std::string well = R"({"size":11})";
  EXPECT_EQ((std::multiset<std::string>{"unknown-host", "unreachable", well, well}), kinds);
}

TEST_F(TavctlCommands, TellAgesUnderAMinuteAndInTheFuture) {
  const std::pair<int, const char*> rows[] = {{0, "\nage +[0-9]+ s\n"}, {-3, "\nage +in the future by [23] min\n"}};
  for (const auto& [minutes, age] : rows) {
    agent.Age("data/a.txt", minutes);
    EXPECT_THAT(Run("test file @/data/a.txt").out, testing::ContainsRegex(age));
  }
}

TEST_F(TavctlCommands, SayWhenTheOutputDeviceIsFull) {
  agent.Write("full.log", "line 1\n");
  for (const char* line : {"ping", "--help", "ls --help", "-V", "completion bash", "config init -", "-o json info",
                           "test log @/full.log --match 1 --from-start"})
    EXPECT_EQ(70, Run(line, "sh -c 'exec $* >/dev/full' sh").status) << line;
  Expect({{"-q test log @/full.log --match 1 --from-start", 0, "line 1\n"}});
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

TEST_F(Tavctl, ManualHelpAndCompletionHoldEveryOptionOfTheTables) {
  const std::string page = ReadFile(TAVCTL_MANUAL), general = ItemOf(page, "");
  const std::string bash = RunBare("completion bash").out, fish = RunBare("completion fish").out;
  std::set<std::string> known = {"help", "version"};
  const std::set<std::string> shared = {"--yes", "--max-failures", "--macros",
                                        "--exit-status"};  // told of at first
  const auto compare = [&](const std::string& command, const std::vector<TArgRow>& rows) {
    const std::string help = RunBare("help " + command).out, item = ItemOf(page, command);
    EXPECT_NE("", item) << "no .It Cm " << command << " in tavctl.1";
    for (const std::string& line : LinesOf(help)) EXPECT_GE(80u, line.size()) << line;
    for (const TArgRow& row : rows) {
      if (!IsOption(row)) continue;
      const std::string option = KeyOf(row);
      known.insert(option.substr(2));
      EXPECT_THAT(help, HasSubstr(option)) << command;
      EXPECT_TRUE(Mentions(shared.count(option) != 0 ? general : item, option) ||
                  Mentions(item, std::string(row.spelling).substr(0, 2)))
          << "tavctl.1 says nothing of " << option << " at '" << command << "'";
      EXPECT_THAT(bash, HasSubstr(option)) << command;
      EXPECT_THAT(bash, HasSubstr(row.choices)) << option;
      EXPECT_THAT(fish, HasSubstr(" -l " + option.substr(2))) << command;
    }
  };
  compare("", GlobalOptions());
  for (const TCommandRow& row : AllCommands()) compare(row.name, row.args);
  const std::regex option("Fl -([a-z-]+)");
  for (std::sregex_iterator at(page.begin(), page.end(), option), end; at != end; ++at)
    EXPECT_EQ(1u, known.count((*at)[1])) << "tavctl.1 tells of --" << (*at)[1] << ", which is not there";
}
