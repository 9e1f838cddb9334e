#include "config/remote_settings.h"

#include <sys/utsname.h>

#include <utility>

#include "config/agent_status.h"
#include "config/settings.h"
#include "config/settings_keys.h"
#include "protocol/results.h"
#include "protocol/tav_const.h"

namespace {

void AddLine(TAVReply& reply, const char* name, const String& value, int encode) {
  String line(name);
  line += '=';
  line += value;
  reply.AddStringParam(line, encode);
}

void AddSetting(TAVReply& reply, const TTAVSettings& settings, const TSettingKey& key) {
  AddLine(reply, key.wire, RemoteValue(settings, key), key.kind == TSettingKind::kAddresses);
}

void AddReport(TAVReply& reply, const TTAVSettings& settings, TReport report) {
  for (int place = 1; const TSettingKey* key = FindSettingByReport(report, place); ++place) {
    AddSetting(reply, settings, *key);
  }
}

// The names of a list, a line each, and their switches, a digit each in the same order.
void AddSwitches(TAVReply& reply, const TTAVSettings& settings, TReport report, const char* available,
                 const char* enabled) {
  String names, flags;
  for (int place = 1; const TSettingKey* key = FindSettingByReport(report, place); ++place) {
    names += key->wire;
    names += "\r\n";
    flags += RemoteValue(settings, *key);
  }
  AddLine(reply, available, names, 1);
  AddLine(reply, enabled, flags, 0);
}

void AddAgent(TAVReply& reply) {
  reply.AddVarParams("%s=%s", "AgentName", AgentStatus.AgentName);
  reply.AddVarParams("%s=%s", "AgentPlatform", AgentStatus.AgentPlatform);
  reply.AddVarParams("%s=%s", "AgentVersion", AgentStatus.AgentVersion);
  reply.AddVarParams("%s=%s", "AgentDeveloper", AgentStatus.AgentDeveloper);
  reply.AddVarParams("Service=%s", BoolConst[AgentStatus.Service != 0]);
  reply.AddVarParams("Active=%s", BoolConst[AgentStatus.Active != 0]);
  reply.AddVarParams("ActiveConnections=%d", AgentStatus.ActiveConnections.load());
  reply.AddVarParams("OpenedConnections=%d", AgentStatus.OpenedConnections.load());
  reply.AddVarParams("FailedConnections=%d", AgentStatus.FailedConnections.load());
}

void AddHost(TAVReply& reply) {
  utsname host;
  if (uname(&host) != 0) return;
  AddLine(reply, "HostName", host.nodename, 0);
  AddLine(reply, "RunningOS", String(host.sysname) + " " + host.release + " " + host.version, 0);
  AddLine(reply, "OSUpdates", "not implemented", 0);
}

void AddStatus(TAVReply& reply, const TTAVSettings& settings) {
  reply.SetResult(kDone);
  AddAgent(reply);
  AddSwitches(reply, settings, TReport::kTests, "Available tests", "Enabled tests");
  AddReport(reply, settings, TReport::kInfo);
  AddSwitches(reply, settings, TReport::kActions, "Available actions", "Enabled actions");
  AddHost(reply);
}

// What a request sets.
struct TChanges {
  TTAVSettings values;
  bool named[kSettingCount] = {};
};

// A line without "=" and a name that is unknown or not to be set from afar are passed over without a word.
void TakeLine(TChanges& changes, const String& line) {
  const int equals = line.Pos('=');
  if (equals == 0) return;

  const TSettingKey* key = FindSettingByWireName(line.Copy(1, equals - 1).Trim());
  if (key == nullptr || !key->settable) return;

  String value = line.Copy(equals + 1, line.Length() - equals);
  value.Trim();
  TakeRemoteValue(changes.values, *key, value);
  changes.named[key - kSettingKeys] = true;
}

void Apply(TChanges& changes, TTAVSettings& settings) {
  for (const TSettingKey& key : kSettingKeys) {
    if (!changes.named[&key - kSettingKeys]) continue;
    if (key.field.text != nullptr) {
      settings.*key.field.text = std::move(changes.values.*key.field.text);
    } else {
      settings.*key.field.number = changes.values.*key.field.number;
    }
  }
}

}  // namespace

void GetAgentStatus(const BVRequest&, TAVReply& reply) {
  AddStatus(reply, *SettingsInForce());
}

void GetAgentSettings(const BVRequest&, TAVReply& reply) {
  const TSettingsPtr settings = SettingsInForce();
  AddStatus(reply, *settings);
  AddReport(reply, *settings, TReport::kManagement);
}

void SetAgentSettings(const BVRequest& request, TAVReply& reply) {
  // Taken apart before the lock is held: there may be megabytes of it.
  TChanges changes;
  const int count = request.GetParamsCount();
  for (int i = 1; i <= count; ++i) TakeLine(changes, request.GetParam(i, 1));

  String message;
  int saved = 0;
  {
    TLock lock(optmutex);
    TTAVSettings next(TAVSettings);  // a change that memory does not suffice for is not made by half
    Apply(changes, next);
    saved = next.SaveOptions_(message);
    PublishSettings(std::move(next));
  }
  if (!saved) return Answer(reply, kFailed, message);
  reply.SetResult(kDone);
}
