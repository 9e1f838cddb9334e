// The command table: every command is dispatched, and listens to its own switches and list of addresses alone.
#include <gtest/gtest.h>
#include <signal.h>

#include <functional>
#include <sstream>

#include "commands.h"

namespace {

const char kManagement[] = R"(
  - GetInfo => ~200(|[A-Z][^=]+=[^|]*){19}
  allowmanage GetSettings => ~200(|[A-Z][^=]+=[^|]*){31}
  allowmanage SetSettings => 200
  allowmanage ReloadCfg => 200|Ok
  allowupdates UpgradeCode|100 => 501|Wrong file parameter(s) (and the connection stays open)
  allowmanage ReloadApp => 200|Ok
  allowmanage QUIT => 200|Ok)";

// What a command says behind switches that are off.
std::string Refusal(const Question& question) {
  if (question.switches.rfind("allow", 0) == 0) return "600";
  return question.Command().rfind("ACT-", 0) == 0 ? "600|operation is not allowed" : "600|test is not allowed";
}

// The names of the settings that are "1" in a configuration.
std::vector<std::string> On(const std::string& configuration) {
  std::vector<std::string> names;
  std::istringstream lines(configuration);
  for (std::string line; std::getline(lines, line);) {
    const size_t sign = line.find("=1");
    if (sign != std::string::npos && line.find_first_not_of('\r', sign + 2) == std::string::npos)
      names.push_back(line.substr(0, sign));
  }
  return names;
}

// Who stands between a peer and which commands.
struct Closing {
  std::string lines;
  std::function<bool(const Question&)> shuts;
};

std::vector<Closing> Closings(const std::vector<std::string>& switches) {
  const auto shuts = [](const std::string& name) { return [=](const Question& q) { return q.switches == name; }; };
  std::vector<Closing> out = {{"manageaddr=10.1.1.1\n", shuts("allowmanage")},
                              {"updateaddr=10.1.1.1\n", shuts("allowupdates")}};
  std::string off;
  for (const std::string& name : switches) off += name + "=0\n";
  for (const std::string& name : switches) {
    out.push_back({name + "=0\n", shuts(name)});
    out.push_back(
        {off + name + "=1\n", [=](const Question& q) { return q.switches != "-" && !q.IsSwitchedBy(name); }});
  }
  return out;
}

// What costs no time and leaves the agent as it is, once a command.
bool IsQuick(const Question& question, std::string& before) {
  const std::string command = question.Command();
  const bool again = before == command;
  before = command;
  return !again && command != "UpgradeCode" && command != "ReloadApp" && command != "QUIT";
}

TEST(CommandTable, EveryCommandAnswersAndAsksItsOwnSwitchesAndAddresses) {
  const Counterpart tcp(true), udp(false);
  Agent agent;
  const std::string subjects = LayOut(agent);
  std::vector<Question> questions = EveryCommand(tcp, udp);
  for (const Question& question : Questions(kManagement)) questions.push_back(question);
  agent.Start(subjects);
  for (const Question& question : questions) {
    agent.Expect(question.request, question.reply);
    const size_t starts = question.request == "ReloadApp" ? 2 : 1;
    EXPECT_TRUE(WaitFor([&] { return agent.Count("Listening...\n") >= starts; })) << agent.Console();
  }
  EXPECT_EQ(0, agent.ExitStatus()) << "it was told to quit";
  EXPECT_TRUE(agent.Shows("Terminate request received. Terminating..\n"));

  for (const Closing& closing : Closings(On(agent.Read("tav.cfg")))) {
    SCOPED_TRACE(closing.lines);
    agent.Start(subjects + closing.lines);
    std::string before;
    for (const Question& question : questions) {
      const bool isQuick = IsQuick(question, before);
      if (closing.shuts(question))
        agent.Expect(question.request, Refusal(question));
      else if (isQuick)
        agent.Expect(question.request, question.reply);
    }
    kill(agent.pid, SIGKILL);
    agent.ExitStatus();
  }
}

}  // namespace
