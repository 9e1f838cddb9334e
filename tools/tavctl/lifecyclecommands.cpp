// reload, restart, stop.
#include "client/agentinfo.h"
#include "client/text.h"
#include "tavctl/commands.h"

namespace {

void BuildNothing(const TArgs&, TParams&) {}
void DecodeNothing(TReader&, TResult& result) {
  result.headline = "done";
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
      Simple("reload", "Have the agent load its configuration file again", "ReloadCfg", {}, BuildNothing,
             DecodeNothing),
      Custom("restart", "Start the agent anew and wait until it is back",
             {{"--wait", TArgKind::kSeconds, "wait so long (30; 0 does not wait)"}}, RunRestart)
          .Ask(TConfirm::kOnTerminal),
      Simple("stop", "End the agent", "QUIT", {}, BuildNothing, DecodeNothing).Ask(TConfirm::kOnTerminal),
  };
}
