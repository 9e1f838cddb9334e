#include "client/wirecommands.h"

namespace {

constexpr const char* kManage = "allowmanage";
constexpr const char* kManageAddr = "manageaddr";

}  // namespace

const std::vector<TWireCommand>& WireCommands() {
  static const std::vector<TWireCommand> commands = {
      {"TEST-UNC", "unc", nullptr},
      {"TEST-DiskSpace", nullptr, nullptr},
      {"TEST-FolderSize", "foldersize", nullptr},
      {"TEST-FileExists", "fileexists", nullptr},
      {"TEST-FileCompare", "comparefiles", nullptr},
      {"TEST-FileCRC", "filecrc", nullptr},
      {"TEST-CountFiles", "countfiles", nullptr},
      {"TEST-Process", "process", nullptr},
      {"TEST-Service", nullptr, nullptr},
      {"TEST-NTLog", nullptr, nullptr},
      {"TEST-CPU", "cpuusage", nullptr},
      {"TEST-PerfCounter", nullptr, nullptr},
      {"TEST-Script", nullptr, nullptr},
      {"TEST-SNMP", nullptr, nullptr},
      {"TEST-ExternalPrg", "external", nullptr},
      {"TEST-Ping", nullptr, nullptr},
      {"TEST-TCP", "tcp", nullptr},
      {"TEST-UDP", "udp", nullptr},
      {"TEST-TextLog2", "textlog", nullptr},
      {"TEST-ShellScript", "shellscript", nullptr},
      {"ACT-ExternalCmd", "executeaction", nullptr},
      {"ACT-TCPUDPsend", "tcpudpaction", nullptr},
      {"ACT-Syslog", "syslogaction", nullptr},
      {"GetProcessesList", "process", nullptr},
      {"GetServicesList", nullptr, nullptr},
      {"GetEventLogFiles", nullptr, nullptr},
      {"GetEventLogSources", nullptr, nullptr},
      {"GetDriveList", nullptr, nullptr},
      {"GetFilesList", "foldersize", nullptr},
      {"GetInfo", nullptr, nullptr},
      {"GetSettings", kManage, kManageAddr},
      {"SetSettings", kManage, kManageAddr},
      {"ReloadCfg", kManage, kManageAddr},
      {"ReloadApp", kManage, kManageAddr},
      {"QUIT", kManage, kManageAddr},
      {"UpgradeCode", "allowupdates", "updateaddr"},
  };
  return commands;
}

const TWireCommand* FindWireCommand(const std::string& name) {
  for (const TWireCommand& command : WireCommands())
    if (name == command.name) return &command;
  return nullptr;
}
