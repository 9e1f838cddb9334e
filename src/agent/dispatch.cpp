#include "agent/dispatch.h"

#include <iterator>
#include <string_view>

#include "actions/extcommand.h"
#include "actions/netactions.h"
#include "agent/showmessage.h"
#include "checks/countfiles.h"
#include "checks/filecompare.h"
#include "checks/filetests.h"
#include "checks/helperscripts.h"
#include "checks/infolists.h"
#include "checks/nettests.h"
#include "checks/scripttests.h"
#include "checks/textlog.h"
#include "checks/unsupported.h"
#include "config/commands.h"
#include "config/ipfilter.h"
#include "config/remote_settings.h"
#include "config/settings.h"
#include "protocol/parameters.h"
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
  if (!call.upgrade.Announce(tavDecodeInt64(call.parameters.GetParam(params::upgrade::kSize, 1)))) {
    // The record stays started: the servers send the file all the same and wait for the second reply.
    return Answer(call.reply, kWrongParameter, "Wrong file parameter(s)");
  }
  String error;
  if (!DoUpgrading(call.upgrade, nullptr, 0, error)) return Answer(call.reply, kFailed, error);
  call.reply.SetResult(kDone);
}

// The handlers, in the order of the table of commands.
struct THandler {
  const char* name;
  void (*handler)(const BVRequest& request, TAVReply& reply);
  void (*own)(TCall& call) = nullptr;  // in place of `handler`
};

constexpr THandler kHandlers[] = {
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
    {"GetSettings", GetAgentSettings},
    {"SetSettings", SetAgentSettings},
    {"ReloadCfg", nullptr, ReloadCfg},
    {"ReloadApp", nullptr, ReloadApp},
    {"QUIT", nullptr, Quit},
    {"UpgradeCode", nullptr, UpgradeCode},
};

constexpr bool EveryCommandHasItsHandler() {
  for (int i = 0; i < kCommandCount; ++i) {
    if (std::string_view(kCommands[i].name) != kHandlers[i].name) return false;
  }
  return true;
}
static_assert(std::size(kHandlers) == kCommandCount, "a command has a row in config/commands and one here");
static_assert(EveryCommandHasItsHandler(), "the rows here stand in the order of config/commands, with its names");

// The row of both tables; -1 when the name is unknown.
int FindCommand(const String& name) {
  for (int i = 0; i < kCommandCount; ++i) {
    if (name == kCommands[i].name) return i;
  }
  return -1;
}

bool IsAllowed(int allowed, in_addr peer, const String& list) {
  String ignored;  // the list's faults are the administrator's to see, not the peer's
  return allowed && IPAllowed(peer, list, ignored);
}

// False when the peer may not run the command now; the reply says so.
bool PassGate(const TCommand& command, in_addr peer, TAVReply& reply) {
  const TSettingsPtr settings = SettingsInForce();
  bool open = SwitchedOn(command, *settings);
  const char* text = "";
  if (command.gate == TGate::kTest) text = "test is not allowed";
  if (command.gate == TGate::kAction) text = "operation is not allowed";
  if (command.gate == TGate::kManagement) open = IsAllowed(settings->allowmanage, peer, settings->manageaddr);
  if (command.gate == TGate::kUpdates) open = IsAllowed(settings->allowupdates, peer, settings->updateaddr);
  if (!open) Answer(reply, kSwitchedOff, text);
  return open;
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
  const int row = FindCommand(name);
  if (row < 0) {
    showmessage("Unknown command \"%s\"\n", params.peer, mtFailure, 1, PeerText(name).CStr());
    reply.SetResult(kUnavailable);
    return false;
  }
  if (!PassGate(kCommands[row], params.peer, reply)) return true;

  const BVRequest parameters = request.WithText(rest);
  TCall call = {parameters, reply, flags, upgrade};
  if (kHandlers[row].own != nullptr) {
    kHandlers[row].own(call);
  } else {
    kHandlers[row].handler(parameters, reply);
  }
  return true;
}
