// settings: get, set, diff, export.
#include <string.h>

#include "client/secrets.h"
#include "client/settings.h"
#include "client/text.h"
#include "tavctl/commands.h"

namespace {

constexpr const char* kHidden = "********";
// A changed port takes the agent up to a second to act on; falling back to the old one, three seconds more.
constexpr long long kPortSwitchMs = 8000;

const TArgRow kShowSecrets = {"--show-secrets", TArgKind::kFlag, "show the password, too"};

TValue ValueOf(const TTAVSettings& settings, const TSettingKey& key, bool secrets) {
  if (IsSecret(key) && !secrets) return std::string(kHidden);
  if (key.kind == TSettingKind::kFlag) return settings.*key.field.number != 0;
  if (key.kind == TSettingKind::kNumber) return static_cast<long long>(settings.*key.field.number);
  return FileText(settings, key);
}

TUnit UnitOf(const TSettingKey& key) {
  return key.kind == TSettingKind::kFlag ? TUnit::kOnOff : TUnit::kNone;
}

bool IsReported(const TSettingKey* wanted) {
  for (const TSettingKey* key : ReportedKeys())
    if (key == wanted) return true;
  return false;
}

bool WantedKeys(const std::vector<std::string>& names, std::vector<const TSettingKey*>& keys, TFailure& failure) {
  if (names.empty()) keys = ReportedKeys();
  for (const std::string& name : names) {
    const TSettingKey* key = FindSetting(name);
    if (key == nullptr)
      return Fail(failure, TKind::kUsage, "unknown setting '" + Visible(name) + "'",
                  "'settings get' lists the names");
    if (!IsReported(key))
      return Fail(failure, TKind::kUsage, "agents do not report '" + NameOf(*key) + "'",
                  "look into its file on the host");
    keys.push_back(key);
  }
  return true;
}

void RunGet(TContext& context, const TArgs& args, TOutcome& outcome) {
  std::vector<const TSettingKey*> keys;
  TTAVSettings settings;
  if (!WantedKeys(args.List("NAME"), keys, outcome.failure)) return;
  if (!FetchSettings(*context.agent, settings, outcome.failure)) return;
  // With one name the value alone is what a script wants.
  outcome.result.named = keys.size() != 1;
  for (const TSettingKey* key : keys) {
    const std::string name = NameOf(*key);
    outcome.result.Add(name.c_str(), name.c_str(), ValueOf(settings, *key, args.Has("--show-secrets")),
                       UnitOf(*key));
  }
}

// Takes NAME=VALUE words and the file of a new password.
bool CollectChanges(const TArgs& args, std::vector<TChange>& changes, TFailure& failure) {
  for (const std::string& word : args.List("NAME=VALUE")) {
    TChange change;
    if (!ParseChange(word, args.Has("--temporary"), change, failure)) return false;
    changes.push_back(change);
  }
  if (args.Has("--new-password-file")) {
    String secret;
    TChange change;
    change.key = FindSetting("password");
    if (!ReadSecretFile(args.Text("--new-password-file"), secret, failure)) return false;
    if (!CheckValue(*change.key, secret.CStr(), change.value, failure)) return false;
    changes.push_back(change);
  }
  return !changes.empty() ||
         Fail(failure, TKind::kUsage, "nothing to set", "give NAME=VALUE or --new-password-file");
}

void Apply(const std::vector<TChange>& changes, TTAVSettings& settings) {
  for (const TChange& change : changes) {
    TakeRemoteValue(settings, *change.key, ToString(change.value));
  }
}

// The saves of agents leave an old text alone that an empty one should replace.
void NoteEmptyTexts(const TContext& context, const std::vector<TChange>& changes) {
  for (const TChange& change : changes)
    if (change.key->field.text != nullptr && change.value.empty())
      Note(context.view, "tavctl: '" + NameOf(*change.key) +
                             "' is empty now, but its old value stays in the agent's "
                             "file and comes back when that is loaded");
}

// Follows the agent to its new port; false when it is not there.
bool FollowPort(TAgent& agent, int port, TFailure& failure) {
  const int oldPort = agent.target.port;
  TAgentInfo info;
  TFailure last;
  agent.target.port = port;
  if (WaitForAgent(agent, kPortSwitchMs, nullptr, info, last)) return true;
  agent.target.port = oldPort;
  if (AskInfo(agent, "GetInfo", info, last))
    return Fail(failure, TKind::kAgent,
                "the agent could not open port " + std::to_string(port) + " and is back on " +
                    std::to_string(oldPort),
                "is another service there? Set the old port again: the agent's file already holds the new one");
  return Fail(
      failure, TKind::kTimeout,
      "the agent answers neither on port " + std::to_string(port) + " nor on " + std::to_string(oldPort),
      "a firewall may not let the new port through");
}

// Reads the settings from where the agent is after the change.
bool ReadBack(TAgent& agent, const TTAVSettings& wanted, TTAVSettings& now, TFailure& failure) {
  if (wanted.password.Length() != 0) agent.password = std::make_shared<const TPasswordKeys>(wanted.password);
  if (wanted.port != agent.target.port && !FollowPort(agent, wanted.port, failure)) return false;
  return FetchSettings(agent, now, failure);
}

void CompareBack(const std::vector<TChange>& changes, const TTAVSettings& before, const TTAVSettings& wanted,
                 const TTAVSettings& now, TOutcome& outcome) {
  TTable table{
      "changes",
      {{"name", "setting", TUnit::kNone}, {"before", "before", TUnit::kNone}, {"after", "after", TUnit::kNone}},
      {}};
  for (const TChange& change : changes) {
    const TSettingKey& key = *change.key;
    const bool reported = IsReported(&key);
    const std::string from = IsSecret(key) ? kHidden : reported ? FileText(before, key) : "(not reported)";
    const std::string to = IsSecret(key) ? kHidden : FileText(reported ? now : wanted, key);
    table.rows.push_back({NameOf(key), from, to});
    if (reported && FileText(now, key) != FileText(wanted, key))
      Fail(outcome.failure, TKind::kAgent, "the agent did not take '" + NameOf(key) + "'",
           "somebody else may have set it");
  }
  outcome.result.tables.push_back(table);
}

void RunSet(TContext& context, const TArgs& args, TOutcome& outcome) {
  std::vector<TChange> changes;
  if (!CollectChanges(args, changes, outcome.failure)) return;
  TTAVSettings before;
  if (!FetchSettings(*context.agent, before, outcome.failure)) return;
  TTAVSettings wanted = before;
  Apply(changes, wanted);
  for (const std::string& warning : Warnings(wanted, OwnAddress(context.agent->target)))
    WriteErr("tavctl: warning: " + warning + "\n");

  TParams params;
  for (const TChange& change : changes) params.Raw(std::string(change.key->wire) + "=" + change.value);
  TReply reply;
  if (!AskAgent(*context.agent, "SetSettings", params, reply, outcome.failure)) return;
  NoteEmptyTexts(context, changes);
  TAgent agent = *context.agent;
  TTAVSettings now;
  if (!ReadBack(agent, wanted, now, outcome.failure)) {
    outcome.failure.code.clear();
    outcome.failure.text = "set and saved, but it cannot be read back: " + outcome.failure.text;
    return;
  }
  CompareBack(changes, before, wanted, now, outcome);
}

void RunDiff(TContext& context, const TArgs& args, TOutcome& outcome) {
  TTAVSettings file, agent;
  const std::string path = args.Text("FILE");
  if (path.size() >= sizeof file.cfgfile || access(path.c_str(), R_OK) != 0) {
    Fail(outcome.failure, TKind::kInput, "cannot read '" + path + "'");
    return;
  }
  memcpy(file.cfgfile, path.c_str(), path.size() + 1);
  String message;
  (void)file.LoadOptions_(message);  // a program that is not installed here is no fault of the file's
  if (!FetchSettings(*context.agent, agent, outcome.failure)) return;
  TTable table{
      "differences",
      {{"name", "setting", TUnit::kNone}, {"file", "file", TUnit::kNone}, {"agent", "agent", TUnit::kNone}},
      {}};
  for (const TSettingKey* key : ReportedKeys()) {
    std::string ours = FileText(file, *key), theirs = FileText(agent, *key);
    if (ours == theirs) continue;
    if (IsSecret(*key)) ours = theirs = kHidden;
    table.rows.push_back({NameOf(*key), ours, theirs});
  }
  if (table.rows.empty()) Note(context.view, "tavctl: the agent has the settings of '" + path + "'");
  outcome.result.tables.push_back(table);
}

void RunExport(TContext& context, const TArgs& args, TOutcome& outcome) {
  TTAVSettings settings;
  if (!FetchSettings(*context.agent, settings, outcome.failure)) return;
  TTable table{"lines", {{"line", "", TUnit::kNone}}, {}};
  table.rows.push_back({"# settings of " + context.agent->target.Name() + ", which reports no paths and no host="});
  for (const TSettingKey* key : ReportedKeys()) {
    if (key->key == nullptr) continue;
    const bool hide = IsSecret(*key) && !args.Has("--show-secrets");
    table.rows.push_back(
        {hide ? std::string("# password is not shown") : key->key + ("=" + FileText(settings, *key))});
  }
  outcome.result.tables.push_back(table);
}

}  // namespace

std::vector<TCommandRow> SettingsCommands() {
  const TArgKind text = TArgKind::kText, flag = TArgKind::kFlag, file = TArgKind::kLocalFile;
  return {
      Custom("settings get", "Show settings of the agent", {{"[NAME...]", text, "only these"}, kShowSecrets},
             RunGet),
      Custom("settings set", "Change settings of the agent and its file",
             {{"[NAME=VALUE...]", text, "by key or by the server's name"},
              {"--new-password-file", file, "take a new password from this file"},
              {"--temporary", flag, "also settings that the agent does not save"}},
             RunSet)
          .OneHost(),
      Custom("settings diff", "Compare the agent's settings with a configuration file",
             {{"FILE", file, "the configuration file"}}, RunDiff),
      Custom("settings export", "Write the agent's settings as lines of a configuration file", {kShowSecrets},
             RunExport),
  };
}
