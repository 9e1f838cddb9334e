// The table of commands: for each its name, who may run it, and the settings that switch it on.
//
// Dispatch adds the handlers; "GetInfo", the settings and the command-line client read the same rows.  A new
// command is a row here and a row in agent/dispatch; the compiler says when either is missing.  The table is
// constant.
#pragma once

#include <iterator>

#include "config/settings.h"

// Who may run a command, and what one who may not is told.
enum class TGate {
  kOpen,        // everybody
  kTest,        // one of its switches must be on, else "test is not allowed"
  kAction,      // its switch must be on, else "operation is not allowed"
  kManagement,  // allowmanage, and a peer in manageaddr; else the bare code
  kUpdates,     // allowupdates, and a peer in updateaddr; else the bare code
};

using TSwitchField = int TTAVSettings::*;

struct TCommand {
  static constexpr int kMostSwitches = 6;

  const char* name;
  TGate gate = TGate::kOpen;
  TSwitchField switches[kMostSwitches] = {};  // any one of them is enough; null behind the last
};

inline constexpr TCommand kCommands[] = {
    {"TEST-UNC", TGate::kTest, {&TTAVSettings::unc}},
    {"TEST-DiskSpace"},
    {"TEST-FolderSize", TGate::kTest, {&TTAVSettings::foldersize}},
    {"TEST-FileExists", TGate::kTest, {&TTAVSettings::fileexists}},
    {"TEST-FileCompare", TGate::kTest, {&TTAVSettings::comparefiles}},
    {"TEST-FileCRC", TGate::kTest, {&TTAVSettings::filecrc}},
    {"TEST-CountFiles", TGate::kTest, {&TTAVSettings::countfiles}},
    {"TEST-Process", TGate::kTest, {&TTAVSettings::process}},
    {"TEST-Service"},
    {"TEST-NTLog"},
    {"TEST-CPU", TGate::kTest, {&TTAVSettings::cpuusage}},
    {"TEST-PerfCounter"},
    {"TEST-Script"},
    {"TEST-SNMP"},
    {"TEST-ExternalPrg", TGate::kTest, {&TTAVSettings::external}},
    {"TEST-Ping"},
    {"TEST-TCP", TGate::kTest, {&TTAVSettings::tcp}},
    {"TEST-UDP", TGate::kTest, {&TTAVSettings::udp}},
    {"TEST-TextLog2", TGate::kTest, {&TTAVSettings::textlog}},
    {"TEST-ShellScript", TGate::kTest, {&TTAVSettings::shellscript}},
    {"ACT-ExternalCmd", TGate::kAction, {&TTAVSettings::executeaction}},
    {"ACT-TCPUDPsend", TGate::kAction, {&TTAVSettings::tcpudpaction}},
    {"ACT-Syslog", TGate::kAction, {&TTAVSettings::syslogaction}},
    {"GetProcessesList", TGate::kTest, {&TTAVSettings::process}},
    {"GetServicesList"},
    {"GetEventLogFiles"},
    {"GetEventLogSources"},
    {"GetDriveList"},
    // Whoever may run a test that takes a path may look for one.
    {"GetFilesList",
     TGate::kTest,
     {&TTAVSettings::foldersize, &TTAVSettings::countfiles, &TTAVSettings::fileexists, &TTAVSettings::filecrc,
      &TTAVSettings::comparefiles, &TTAVSettings::textlog}},
    {"GetInfo"},
    {"GetSettings", TGate::kManagement},
    {"SetSettings", TGate::kManagement},
    {"ReloadCfg", TGate::kManagement},
    {"ReloadApp", TGate::kManagement},
    {"QUIT", TGate::kManagement},
    {"UpgradeCode", TGate::kUpdates},
};
inline constexpr int kCommandCount = static_cast<int>(std::size(kCommands));

// True when one of the command's switches is on, or it has none.
bool SwitchedOn(const TCommand& command, const TTAVSettings& settings);
