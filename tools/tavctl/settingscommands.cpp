// settings: get, set, diff, export.
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "client/inputfiles.h"
#include "client/secrets.h"
#include "client/settings.h"
#include "client/text.h"
#include "tavctl/commands.h"

namespace {

constexpr const char* kHidden = "********";
constexpr const char* kNotReported = "(not reported)";
// A changed port takes the agent up to a second to act on; falling back to the old one, three seconds more.
constexpr long long kPortSwitchMs = 8000;

const TArgRow kShowSecrets = {"--show-secrets", TArgKind::kFlag, "show the password, too"};

// Older agents report fewer settings than ours.
TValue ValueOf(const TReported& settings, const TSettingKey& key, bool secrets) {
  if (!settings.Has(key)) return std::string(kNotReported);
  if (IsSecret(key) && !secrets) return std::string(kHidden);
  if (key.kind == TSettingKind::kFlag) return settings.values.*key.field.number != 0;
  if (key.kind == TSettingKind::kNumber) return static_cast<long long>(settings.values.*key.field.number);
  return FileText(settings.values, key);
}

std::string TextOf(const TReported& settings, const TSettingKey& key) {
  if (!settings.Has(key)) return kNotReported;
  return IsSecret(key) ? kHidden : FileText(settings.values, key);
}

TUnit UnitOf(const TReported& settings, const TSettingKey& key) {
  return settings.Has(key) && key.kind == TSettingKind::kFlag ? TUnit::kOnOff : TUnit::kNone;
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
    if (key == nullptr) return UnknownSetting(name, failure);
    if (!IsReported(key))
      return Fail(failure, TKind::kUsage, "agents do not report '" + NameOf(*key) + "'",
                  "look into its file on the host");
    keys.push_back(key);
  }
  return true;
}

void RunGet(TContext& context, const TArgs& args, TOutcome& outcome) {
  std::vector<const TSettingKey*> keys;
  TReported settings;
  if (!WantedKeys(args.List("NAME"), keys, outcome.failure)) return;
  if (!FetchSettings(*context.agent, settings, outcome.failure)) return;
  // With one name the value alone is what a script wants.
  outcome.result.named = keys.size() != 1;
  for (const TSettingKey* key : keys) {
    const std::string name = NameOf(*key);
    outcome.result.Add(name.c_str(), name.c_str(), ValueOf(settings, *key, args.Has("--show-secrets")),
                       UnitOf(settings, *key));
  }
}

bool ReadNewPassword(const std::string& path, String& secret, TFailure& failure) {
  if (path == "-") return ReadSecretLine(STDIN_FILENO, "standard input", secret, failure);
  return ReadSecretFile(path, secret, failure);
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
    if (!ReadNewPassword(args.Text("--new-password-file"), secret, failure)) return false;
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
    return Fail(
        failure, TKind::kAgent,
        "the agent could not open port " + std::to_string(port) + " and is back on " + std::to_string(oldPort),
        "is another service there? Set the old port again: the agent's file already holds the new one");
  return Fail(failure, TKind::kTimeout,
              "the agent answers neither on port " + std::to_string(port) + " nor on " + std::to_string(oldPort),
              "a firewall may not let the new port through");
}

// Reads the settings from where the agent is after the change.
bool ReadBack(TAgent& agent, const TTAVSettings& before, const TTAVSettings& wanted, TReported& now,
              TFailure& failure) {
  if (wanted.password.Length() != 0) agent.password = std::make_shared<const TPasswordKeys>(wanted.password);
  // Not the target's: that may be a tunnel's.
  if (wanted.port != before.port && !FollowPort(agent, wanted.port, failure)) return false;
  return FetchSettings(agent, now, failure);
}

TTable ChangesTable(const char* name, const char* before, const char* after) {
  return {
      name, {{"name", "setting", TUnit::kNone}, {before, before, TUnit::kNone}, {after, after, TUnit::kNone}}, {}};
}

void CompareBack(const std::vector<TChange>& changes, const TReported& before, const TTAVSettings& wanted,
                 const TReported& now, TOutcome& outcome) {
  TTable table = ChangesTable("changes", "before", "after");
  for (const TChange& change : changes) {
    const TSettingKey& key = *change.key;
    const bool told = now.Has(key);
    const std::string sent = IsSecret(key) ? kHidden : FileText(wanted, key);
    table.rows.push_back(
        {NameOf(key), TextOf(before, key), told ? TextOf(now, key) : sent + " " + std::string(kNotReported)});
    if (told && FileText(now.values, key) != FileText(wanted, key))
      Fail(outcome.failure, TKind::kAgent, "the agent did not take '" + NameOf(key) + "'",
           "somebody else may have set it");
  }
  outcome.result.tables.push_back(table);
}

// Something that takes connections already is where the agent could not listen.
bool IsTaken(const TAgent& agent, int port) {
  TTarget target = agent.target;
  target.port = port;
  TFailure none;
  return TLink(agent.deadline).Connect(target, std::min(agent.timeoutMs, 2000LL), none);
}

// Refuses what would shut the caller out.  With `forced` it only says so.
bool StaysReachable(const TAgent& agent, const TTAVSettings& before, const TTAVSettings& wanted, bool forced,
                    TFailure& failure) {
  std::vector<std::string> lockouts = Lockouts(wanted, OwnAddress(agent.target, agent.timeoutMs));
  if (wanted.port != before.port && IsTaken(agent, wanted.port))
    lockouts.push_back("port " + std::to_string(wanted.port) + " of that host is in use");
  if (lockouts.empty()) return true;
  if (forced) {
    for (const std::string& lockout : lockouts) WriteErr("tavctl: warning: " + lockout + "\n");
    return true;
  }
  std::string all;
  for (const std::string& lockout : lockouts) all += (all.empty() ? "" : "; ") + lockout;
  return Fail(failure, TKind::kUsage, all, "nothing was sent; if it is meant, give --force");
}

void RunSet(TContext& context, const TArgs& args, TOutcome& outcome) {
  std::vector<TChange> changes;
  TFailure& failure = outcome.failure;
  if (!CollectChanges(args, changes, failure)) return;
  TAgent agent = *context.agent;
  TReported before, now;
  if (!FetchSettings(agent, before, failure)) return;
  TTAVSettings wanted = before.values;
  Apply(changes, wanted);
  if (!StaysReachable(agent, before.values, wanted, args.Has("--force"), failure)) return;
  if (const std::string odd = FilterOddity(wanted); !odd.empty()) WriteErr("tavctl: warning: " + odd + "\n");

  TParams params;
  for (const TChange& change : changes) params.Raw(std::string(change.key->wire) + "=" + change.value);
  TReply reply;
  if (!AskAgent(agent, "SetSettings", params, reply, failure)) return;
  NoteEmptyTexts(context, changes);
  if (ReadBack(agent, before.values, wanted, now, failure))
    return CompareBack(changes, before, wanted, now, outcome);
  failure.code.clear();
  failure.text = "set and saved, but it cannot be read back: " + failure.text;
}

bool LoadOwnFile(const std::string& given, TTAVSettings& file, TFailure& failure) {
  TFd copy;
  std::string path;
  if (!InputPath(given, path, copy, failure)) return false;
  if (path.size() >= sizeof file.cfgfile || access(path.c_str(), R_OK) != 0)
    return Fail(failure, TKind::kInput, "cannot read '" + given + "'");
  memcpy(file.cfgfile, path.c_str(), path.size() + 1);
  String message;
  (void)file.LoadOptions_(message);  // a program that is not installed here is no fault of the file's
  return true;
}

void RunDiff(TContext& context, const TArgs& args, TOutcome& outcome) {
  TTAVSettings file;
  TReported agent;
  if (!LoadOwnFile(args.Text("FILE"), file, outcome.failure)) return;
  if (!FetchSettings(*context.agent, agent, outcome.failure)) return;
  TTable table = ChangesTable("differences", "file", "agent");
  for (const TSettingKey* key : ReportedKeys()) {
    const std::string ours = FileText(file, *key);
    if (agent.Has(*key) && ours == FileText(agent.values, *key)) continue;
    table.rows.push_back({NameOf(*key), IsSecret(*key) ? kHidden : ours, TextOf(agent, *key)});
  }
  if (table.rows.empty()) Note(context.view, "tavctl: the agent has the settings of '" + args.Text("FILE") + "'");
  outcome.result.tables.push_back(table);
}

std::string ExportLine(const TReported& settings, const TSettingKey& key, bool secrets) {
  if (!settings.Has(key)) return "# " + std::string(key.key) + " is not reported by this agent";
  if (IsSecret(key) && !secrets) return "# password is not shown";
  return key.key + ("=" + FileText(settings.values, key));
}

void RunExport(TContext& context, const TArgs& args, TOutcome& outcome) {
  TReported settings;
  if (!FetchSettings(*context.agent, settings, outcome.failure)) return;
  TTable table{"lines", {{"line", "", TUnit::kNone}}, {}};
  table.rows.push_back({"# settings of " + context.agent->target.Name() + ", which reports no paths and no host="});
  for (const TSettingKey* key : ReportedKeys())
    if (key->key != nullptr) table.rows.push_back({ExportLine(settings, *key, args.Has("--show-secrets"))});
  outcome.result.tables.push_back(table);
}

// For completion; lives as long as the program.
const char* SettingWords() {
  static const std::string words = [] {
    std::string all;
    for (const TSettingKey* key : ReportedKeys())
      if (key->key != nullptr) all += (all.empty() ? "" : " ") + std::string(key->key);
    return all;
  }();
  return words.c_str();
}

}  // namespace

std::vector<TCommandRow> SettingsCommands() {
  const TArgKind text = TArgKind::kText, flag = TArgKind::kFlag, file = TArgKind::kInputFile;
  return {
      Custom("settings get", "Show settings of the agent",
             {{"[NAME...]", text, "only these", SettingWords()}, kShowSecrets}, RunGet),
      Custom("settings set", "Change settings of the agent and its file",
             {{"[NAME=VALUE...]", text, "by key or by the server's name", SettingWords()},
              {"--new-password-file", file, "take a new password from this file"},
              {"--temporary", flag, "also settings that the agent does not save"},
              {"--force", flag, "also what shuts yourself out"}},
             RunSet)
          .Changes(Always)
          .OneHost(),
      Custom("settings diff", "Compare the agent's settings with a configuration file",
             {{"FILE", file, "the configuration file"}}, RunDiff),
      Custom("settings export", "Write the agent's settings as lines of a configuration file", {kShowSecrets},
             RunExport),
  };
}
