// The command table: every command is dispatched, and its gate answers when it is off or the peer's address is
// wrong.
#include <gtest/gtest.h>

#include "agent_fixture.h"

namespace {

const char kTests[] = R"(
  TEST-UNC => 501|Path not specified ; TEST-FolderSize|/no/such => 301|Folder/File doesn`t exist or access denied
  TEST-FileExists => 301|no such file or acess denied ; TEST-FileCompare => 301|File doesn`t exist
  TEST-FileCRC => 301|File is not specified ; TEST-CountFiles|/|*|0|6 => 501|Wrong parameter
  TEST-Process||x => 301|ProcCnt script is not speified ; TEST-CPU => 301|CPUUsage script is not speified
  TEST-ExternalPrg => 501 ; TEST-TCP|127.0.0.1|x => 501|Wrong parameter ; TEST-UDP => 501|Wrong parameter
  TEST-TextLog2 => 301|File does not exist ; TEST-ShellScript|/bin/true => 200||
  GetProcessesList => 301|ProcList script is not speified ; GetFilesList => 200|/|0|2)";
const char kActions[] = R"(
  ACT-ExternalCmd => 501|Command line to execute is not specified
  ACT-TCPUDPsend => 501|Wrong parameter ; ACT-Syslog => 501|Wrong parameter)";
const char kUngated[] = R"(
  TEST-DiskSpace => 500|Not applicable for UNIX/Linux ; TEST-Service => 500|Not applicable for UNIX/Linux
  TEST-NTLog => 500|Not applicable for UNIX/Linux ; TEST-PerfCounter => 500|Not applicable for UNIX/Linux
  GetServicesList => 500|Not applicable for UNIX/Linux ; GetEventLogFiles => 500|Not applicable for UNIX/Linux
  GetEventLogSources => 500|Not applicable for UNIX/Linux ; TEST-Script => 500|not implemented yet
  TEST-SNMP => 500|not implemented yet ; TEST-Ping => 500|not implemented yet
  GetDriveList => 500|not implemented yet ; GetInfo => ~200(|[A-Z][^=]+=[^|]*){19})";
const char kManaged[] = R"(
  GetSettings => ~200(|[A-Z][^=]+=[^|]*){31} ; SetSettings => 200 ; ReloadCfg => 200|Ok
  UpgradeCode|100 => 501|Wrong file parameter(s) (and the connection stays open)
  ReloadApp => 200|Ok ; QUIT => 200|Ok)";

TEST(CommandTable, EveryCommandIsDispatchedAndGated) {
  const std::string on = "executeaction=1\ntcpudpaction=1\nsyslogaction=1\n";
  std::string off = "allowmanage=0\nallowupdates=0\n";
  for (const char* key :
       {"unc", "freespace", "foldersize", "countfiles", "fileexists", "filecrc", "comparefiles", "process",
        "cpuusage", "script", "external", "ping", "tcp", "udp", "textlog", "shellscript"})
    off += std::string(key) + "=0\n";
  Agent open(on), shut(off), foreign(on + "manageaddr=10.1.1.1\nupdateaddr=10.1.1.1\n");
  const struct {
    const char* table;
    const char* off;  // empty: there is no switch
    size_t commands;
  } groups[] = {{kTests, "600|test is not allowed", 15},
                {kActions, "600|operation is not allowed", 3},
                {kUngated, "", 12},
                {kManaged, "600", 6}};
  for (const auto& group : groups) {
    EXPECT_EQ(group.commands, Rows(group.table).size());
    for (const Exchange& row : Rows(group.table)) {
      shut.Expect(row.request, *group.off ? group.off : row.reply);
      foreign.Expect(row.request, group.table == kManaged ? "600" : row.reply);
      open.Expect(row.request, row.reply);
      if (row.request != "ReloadApp") continue;
      EXPECT_TRUE(WaitFor([&] { return open.Count("Listening...\n") == 2; })) << open.Console();
    }
  }
  EXPECT_EQ(0, open.ExitStatus(open.pid)) << "it was told to quit";
  EXPECT_TRUE(open.Shows("Terminate request received. Terminating..\n"));
}

}  // namespace
