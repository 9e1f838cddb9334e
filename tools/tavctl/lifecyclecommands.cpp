// reload, restart, stop.
#include "client/agentinfo.h"
#include "client/text.h"
#include "tavctl/commands.h"
#include "tavctl/configcheck.h"

namespace {

void BuildNothing(const TArgs&, TParams&) {}
void DecodeNothing(TReader&, TResult& result) {
  result.headline = "done";
}

// Looks at the file first, where the user has named it.  An agent does not change its port at a load.
bool CheckOwnFile(const TContext& context, bool forced, TFailure& failure) {
  std::vector<TFinding> findings;
  int port = 0;
  if (context.agentConfig.empty()) return true;
  if (!CheckConfig(context.agentConfig, findings, port, failure)) return false;
  for (const TFinding& finding : findings)
    if (finding.fatal && !forced)
      return Fail(failure, TKind::kConfig,
                  context.agentConfig + ":" + std::to_string(finding.line) + ": " + finding.text,
                  "nothing was sent; put the file right, or give --force");
  TAgentInfo info;
  if (!AskInfo(*context.agent, "GetInfo", info, failure)) return false;
  if (port != info.Number("Port"))
    Note(context.view, "tavctl: port=" + std::to_string(port) +
                           " in the file takes a restart; the agent stays on " + info.Value("Port"));
  return true;
}

// Until the load the agent has the old settings, while we have read the new ones.
void AdviseOnReload(const TContext& context, TFailure& failure) {
  const bool own = !context.agentConfig.empty();
  if (own && failure.kind == TKind::kClosed)
    failure.hint =
        "if password= was changed in the file, ask with the old one (--password-file); it counts until the load";
  if (own && failure.kind == TKind::kUnreachable)
    failure.hint = "if port= was changed in the file, ask on the old one (-p); a new port takes a restart";
  if (failure.text.find("Password is not specified") == std::string::npos) return;
  failure.text += " -- THE AGENT NOW HAS AN EMPTY PASSWORD AND ANSWERS EVERYBODY";
  failure.hint = "put password= back into its file at once, and restart it on the host";
}

void RunReload(TContext& context, const TArgs& args, TOutcome& outcome) {
  TReply reply;
  if (CheckOwnFile(context, args.Has("--force"), outcome.failure) &&
      AskAgent(*context.agent, "ReloadCfg", TParams(), reply, outcome.failure)) {
    outcome.result.headline = "done";
    return;
  }
  AdviseOnReload(context, outcome.failure);
}

// The agent goes away within a second of its answer.
void RunRestart(TContext& context, const TArgs& args, TOutcome& outcome) {
  TAgentInfo before, after;
  if (!AskInfo(*context.agent, "GetInfo", before, outcome.failure)) return;
  TReply reply;
  if (!AskAgent(*context.agent, "ReloadApp", TParams(), reply, outcome.failure)) return;
  const long long waitMs = args.Milliseconds("--wait", 30000);
  if (waitMs == 0) {
    outcome.result.headline = "restart asked for";
    return;
  }
  const TRestart restart{before.Number("OpenedConnections")};
  if (!WaitForAgent(*context.agent, waitMs, &restart, after, outcome.failure)) return;
  outcome.result.headline = after.Value("AgentName") + " " + after.Value("AgentVersion") + " is back after " +
                            MillisecondsText(after.elapsedMs);
}

}  // namespace

std::vector<TCommandRow> LifecycleCommands() {
  return {
      Custom("reload", "Have the agent load its configuration file again",
             {{"--force", TArgKind::kFlag, "also when --agent-config names a file with errors"}}, RunReload),
      Custom("restart", "Start the agent anew and wait until it is back",
             {{"--wait", TArgKind::kSeconds, "wait so long (30; 0 does not wait)"}}, RunRestart)
          .Changes(Always)
          .Fragile(),
      Simple("stop", "End the agent", "QUIT", {}, BuildNothing, DecodeNothing).Changes(Always),
  };
}
