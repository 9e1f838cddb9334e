#include "agent/dispatch.h"

#include "actions/extcommand.h"
#include "actions/netactions.h"
#include "agent/ipfilter.h"
#include "agent/showmessage.h"
#include "checks/countfiles.h"
#include "checks/filecompare.h"
#include "checks/filetests.h"
#include "checks/infolists.h"
#include "checks/nettests.h"
#include "checks/scripttests.h"
#include "checks/textlog.h"
#include "checks/unsupported.h"
#include "config/remote_settings.h"
#include "config/settings.h"
#include "protocol/results.h"
#include "protocol/tav_const.h"

namespace {

// What the agent's own commands work on.
struct TCall {
  const BVRequest& parameters;
  TAVReply& reply;
  TTAVFlags& flags;
  UpgradeRec& upgrade;
};

void ReloadCfg(TCall& call) {
  String message;
  if (TTAVSettings::LoadOptions(message)) return Answer(call.reply, kDone, "Ok");
  Answer(call.reply, kFailed, message);
}

void ReloadApp(TCall& call) {
  Answer(call.reply, kDone, "Ok");
  call.flags.reload = 1;
}

void Quit(TCall& call) {
  Answer(call.reply, kDone, "Ok");
  call.flags.terminate = 1;
}

void UpgradeCode(TCall& call) {
  if (!call.upgrade.RequestUpgrade(call.parameters.GetSessionKey())) {
    call.reply.SetResult(kUpgradeBusy);
    return;
  }
  if (!call.upgrade.Announce(tavDecodeInt64(call.parameters.GetParam(1, 1)))) {
    // The record stays started: the servers send the file all the same and wait for the second reply.
    return Answer(call.reply, kWrongParameter, "Wrong file parameter(s)");
  }
  String error;
  if (!DoUpgrading(call.upgrade, nullptr, 0, error)) return Answer(call.reply, kFailed, error);
  call.reply.SetResult(kDone);
}

// Who may run a command.
enum TGate {
  kHandlerAsks,  // the handler looks at its own switch
  kManagement,   // allowmanage, and a peer in manageaddr
  kUpdates,      // allowupdates, and a peer in updateaddr
};

struct TCommand {
  const char* name;
  void (*handler)(const BVRequest& request, TAVReply& reply);
  TGate gate = kHandlerAsks;
  void (*own)(TCall& call) = nullptr;  // in place of `handler`
};

constexpr TCommand kCommands[] = {
    {"TEST-UNC", ProcessTest_UNC},
    {"TEST-DiskSpace", ProcessTest_DiskSpace},
    {"TEST-FolderSize", ProcessTest_FolderSize},
    {"TEST-FileExists", ProcessTest_FileExists},
    {"TEST-FileCompare", ProcessTest_FileCompare},
    {"TEST-FileCRC", ProcessTest_FileCRC},
    {"TEST-CountFiles", ProcessTest_CountFiles},
    {"TEST-Process", ProcessTest_Process},
    {"TEST-Service", ProcessTest_Service},
    {"TEST-NTLog", ProcessTest_NTLog},
    {"TEST-CPU", ProcessTest_CPU},
    {"TEST-PerfCounter", ProcessTest_Perf},
    {"TEST-Script", ProcessTest_Script},
    {"TEST-SNMP", ProcessTest_SNMP},
    {"TEST-ExternalPrg", ProcessTest_External},
    {"TEST-Ping", ProcessTest_Ping},
    {"TEST-TCP", ProcessTest_TCP},
    {"TEST-UDP", ProcessTest_UDP},
    {"TEST-TextLog2", ProcessTest_TextLog2},
    {"TEST-ShellScript", ProcessTest_ShellScript},
    {"ACT-ExternalCmd", ProcessAct_ExternalCmd},
    {"ACT-TCPUDPsend", ProcessAct_TCPSend},
    {"ACT-Syslog", ProcessAct_Syslog},
    {"GetProcessesList", ProcessInfo_ProcessesList},
    {"GetServicesList", ProcessInfo_ServicesList},
    {"GetEventLogFiles", ProcessInfo_EventLogFiles},
    {"GetEventLogSources", ProcessInfo_EventLogSources},
    {"GetDriveList", ProcessInfo_GetDriveList},
    {"GetFilesList", ProcessInfo_GetFileList},
    {"GetInfo", GetAgentStatus},
    {"GetSettings", GetAgentSettings, kManagement},
    {"SetSettings", SetAgentSettings, kManagement},
    {"ReloadCfg", nullptr, kManagement, ReloadCfg},
    {"ReloadApp", nullptr, kManagement, ReloadApp},
    {"QUIT", nullptr, kManagement, Quit},
    {"UpgradeCode", nullptr, kUpdates, UpgradeCode},
};

const TCommand* FindCommand(const String& name) {
  for (const TCommand& command : kCommands) {
    if (name == command.name) return &command;
  }
  return nullptr;
}

bool MayRun(TGate gate, in_addr peer) {
  if (gate == kHandlerAsks) return true;
  const TSettingsPtr settings = SettingsInForce();
  String ignored;  // the list's faults are the administrator's to see, not the peer's
  if (gate == kManagement) return settings->allowmanage && IPAllowed(peer, settings->manageaddr, ignored);
  return settings->allowupdates && IPAllowed(peer, settings->updateaddr, ignored);
}

// The command line, trimmed, and the text behind it.
String SplitCommand(const String& text, String& rest) {
  const int lineEnd = text.Pos('\n');
  String command = lineEnd > 0 ? text.Copy(1, lineEnd - 1) : text;
  rest = lineEnd > 0 ? text.Copy(lineEnd + 1, text.Length()) : String();
  return command.Trim();
}

}  // namespace

bool ProcessBVRequest(const BVRequest& request, TAVReply& reply, TTAVFlags& flags, const ThreadParams& params,
                      UpgradeRec& upgrade) {
  if (request.Text().Pos('\r') == 0) {
    showmessage("EndOfTransmission signal missed\n", params.peer, mtFailure, 0);
    reply.SetResult(kNoLineEnd);
    return false;
  }
  String rest;
  const String name = SplitCommand(request.Text(), rest);
  if (name.Length() == 0) {
    showmessage("Void request received\n", params.peer, mtFailure, 0);
    reply.SetResult(kUnavailable);
    return false;
  }
  const TCommand* command = FindCommand(name);
  if (command == nullptr) {
    showmessage("Unknown command \"%s\"\n", params.peer, mtFailure, 1, PeerText(name).CStr());
    reply.SetResult(kUnavailable);
    return false;
  }
  if (!MayRun(command->gate, params.peer)) {
    reply.SetResult(kSwitchedOff);
    return true;
  }

  const BVRequest parameters = request.WithText(rest);
  if (command->own == nullptr) {
    command->handler(parameters, reply);
    return true;
  }
  TCall call = {parameters, reply, flags, upgrade};
  command->own(call);
  return true;
}
