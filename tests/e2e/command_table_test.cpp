// The command table: every command is dispatched, and listens to its own switch and list of addresses alone.
#include <gtest/gtest.h>

#include "agent_fixture.h"

namespace {

// The switch that a command asks, the request and its reply.
const char kCommands[] = R"(
  unc TEST-UNC => 501|Path not specified ; cpuusage TEST-CPU => 301|CPUUsage script is not speified
  foldersize TEST-FolderSize|/no/such => 301|Folder/File doesn`t exist or access denied
  fileexists TEST-FileExists => 301|no such file or acess denied ; filecrc TEST-FileCRC => 301|File is not specified
  comparefiles TEST-FileCompare => 301|File doesn`t exist ; countfiles TEST-CountFiles|/|*|0|6 => 501|Wrong parameter
  process TEST-Process||x => 301|ProcCnt script is not speified ; external TEST-ExternalPrg => 501
  process GetProcessesList => 301|ProcList script is not speified ; tcp TEST-TCP|127.0.0.1|x => 501|Wrong parameter
  udp TEST-UDP => 501|Wrong parameter ; textlog TEST-TextLog2 => 301|File does not exist
  shellscript TEST-ShellScript|/bin/true => 200|| ; syslogaction ACT-Syslog => 501|Wrong parameter
  executeaction ACT-ExternalCmd => 501|Command line to execute is not specified
  tcpudpaction ACT-TCPUDPsend => 501|Wrong parameter
  - TEST-DiskSpace => 500|Not applicable for UNIX/Linux ; - TEST-Service => 500|Not applicable for UNIX/Linux
  - TEST-NTLog => 500|Not applicable for UNIX/Linux ; - TEST-PerfCounter => 500|Not applicable for UNIX/Linux
  - GetServicesList => 500|Not applicable for UNIX/Linux ; - GetEventLogFiles => 500|Not applicable for UNIX/Linux
  - GetEventLogSources => 500|Not applicable for UNIX/Linux ; - TEST-Script => 500|not implemented yet
  - TEST-SNMP => 500|not implemented yet ; - TEST-Ping => 500|not implemented yet
  - GetDriveList => 500|not implemented yet ; - GetInfo => ~200(|[A-Z][^=]+=[^|]*){19}
  allowupdates UpgradeCode|100 => 501|Wrong file parameter(s) (and the connection stays open)
  allowmanage GetSettings => ~200(|[A-Z][^=]+=[^|]*){31} ; allowmanage SetSettings => 200
  allowmanage ReloadCfg => 200|Ok ; allowmanage ReloadApp => 200|Ok ; allowmanage QUIT => 200|Ok)";
const char kEverything[] = "executeaction=1\ntcpudpaction=1\nsyslogaction=1\n";

// What a command says behind a switch that is off.
std::string Refusal(const std::string& key) {
  if (key.rfind("allow", 0) == 0) return "600";
  return key.find("action") != std::string::npos ? "600|operation is not allowed" : "600|test is not allowed";
}

TEST(CommandTable, EveryCommandAsksItsOwnSwitchAndAddresses) {
  std::vector<std::pair<std::string, std::string>> closings = {
      {"comment=nothing", ""}, {"manageaddr=10.1.1.1", "allowmanage"}, {"updateaddr=10.1.1.1", "allowupdates"}};
  for (const char* key :
       {"unc",     "freespace",   "foldersize",    "countfiles",   "fileexists",   "filecrc",     "comparefiles",
        "process", "cpuusage",    "script",        "external",     "ping",         "tcp",         "udp",
        "textlog", "shellscript", "executeaction", "tcpudpaction", "syslogaction", "allowmanage", "allowupdates"})
    closings.push_back({std::string(key) + "=0", key});
  const std::vector<Exchange> rows = Rows(kCommands);
  ASSERT_EQ(35u, rows.size());
  for (const auto& [line, closed] : closings) {
    SCOPED_TRACE(line);
    Agent agent(kEverything + line + "\n");
    for (const Exchange& row : rows) {
      const size_t blank = row.request.find(' ');
      const std::string key = row.request.substr(0, blank), request = row.request.substr(blank + 1);
      const bool shut = key == closed, ends = request == "ReloadApp" || request == "QUIT";
      const bool slow = key == "allowupdates" && closed.rfind("allow", 0) != 0;
      if (shut || closed.empty() || !(ends || slow)) agent.Expect(request, shut ? Refusal(key) : row.reply);
      if (request != "ReloadApp" || !closed.empty()) continue;
      EXPECT_TRUE(WaitFor([&] { return agent.Count("Listening...\n") == 2; })) << agent.Console();
    }
    if (!closed.empty()) continue;
    EXPECT_EQ(0, agent.ExitStatus(agent.pid)) << "it was told to quit";
    EXPECT_TRUE(agent.Shows("Terminate request received. Terminating..\n"));
  }
}

TEST(CommandTable, AnySwitchOfAFileTestOpensTheFilesList) {
  const std::string keys[] = {"foldersize",   "countfiles", "fileexists", "filecrc",
                              "comparefiles", "textlog",    "unc"};
  for (const std::string& open : keys) {
    std::string lines;
    for (const std::string& key : keys) lines += key + (key == open ? "=1\n" : "=0\n");
    Agent agent(lines);
    agent.Expect("GetFilesList", open == "unc" ? "600|test is not allowed" : "200|/|0|2");
  }
}

}  // namespace
