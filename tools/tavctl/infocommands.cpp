// ping, info, wait.
#include "client/agentinfo.h"
#include "client/text.h"
#include "tavctl/commands.h"

namespace {

void AddSwitches(const char* name, const char* label, const std::vector<TSwitch>& switches, TResult& result) {
  TTable table{name, {{"name", label, TUnit::kNone}, {"on", "", TUnit::kOnOff}}, {}};
  for (const TSwitch& one : switches) table.rows.push_back({one.name, one.on});
  result.tables.push_back(table);
}

void RunInfo(TContext& context, const TArgs&, TOutcome& outcome) {
  TAgentInfo info;
  if (!AskInfo(*context.agent, "GetInfo", info, outcome.failure)) return;
  TResult& result = outcome.result;
  result.named = true;
  result.headline =
      info.Value("AgentName") + " " + info.Value("AgentVersion") + " at " + context.agent->target.Name();
  result.Add("name", "agent", info.Value("AgentName"));
  result.Add("version", "version", info.Value("AgentVersion"));
  result.Add("platform", "platform", info.Value("AgentPlatform"));
  result.Add("developer", "made by", info.Value("AgentDeveloper"));
  result.Add("hostname", "host name", info.Value("HostName"));
  result.Add("os", "runs on", info.Value("RunningOS"));
  result.Add("port", "port", info.Number("Port"));
  result.Add("timeout_ms", "time-out", info.Number("Timeout"), TUnit::kMilliseconds);
  result.Add("comment", "comment", info.Value("Comment"));
  result.Add("connections_active", "connections now", info.Number("ActiveConnections"), TUnit::kCount);
  result.Add("connections_opened", "since its start", info.Number("OpenedConnections"), TUnit::kCount);
  result.Add("connections_rejected", "turned away", info.Number("FailedConnections"), TUnit::kCount);
  AddSwitches("tests", "test", info.tests, result);
  AddSwitches("actions", "action", info.actions, result);
}

// People want to know how fast it was; for the others the time is in elapsed_ms, and the version is the answer.
void Greet(const TAgentInfo& info, const TContext& context, TOutcome& outcome) {
  const std::string version = info.Value("AgentVersion");
  if (context.view.format != TFormat::kTable) return outcome.result.Add("version", "version", version);
  const std::string where = context.view.many ? "" : context.agent->target.Name() + ": ";
  outcome.result.headline =
      where + info.Value("AgentName") + " " + version + " answers in " + MillisecondsText(info.elapsedMs);
}

void RunPing(TContext& context, const TArgs&, TOutcome& outcome) {
  TAgentInfo info;
  if (AskInfo(*context.agent, "GetInfo", info, outcome.failure)) Greet(info, context, outcome);
}

void RunWait(TContext& context, const TArgs& args, TOutcome& outcome) {
  TAgentInfo info;
  if (WaitForAgent(*context.agent, args.Milliseconds("--for", 30000), nullptr, info, outcome.failure))
    Greet(info, context, outcome);
}

}  // namespace

std::vector<TCommandRow> InfoCommands() {
  return {
      Custom("ping", "Ask whether the agent answers", {}, RunPing),
      Custom("info", "Show the agent, its host, and which tests and actions are on", {}, RunInfo),
      Custom("wait", "Wait until the agent answers", {{"--for", TArgKind::kSeconds, "give up after so long (30)"}},
             RunWait),
  };
}
