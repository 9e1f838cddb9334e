// run and script: programs that the agent starts, and scripts that travel to it.
#include <string.h>

#include "client/inputfiles.h"
#include "client/text.h"
#include "protocol/parameters.h"
#include "tavctl/commands.h"

namespace {

constexpr long long kWaitMs = 30000;
constexpr long long kLines = 1000;
constexpr long long kMaxScript = 4 * 1024 * 1024;

// The agent looks at its child once a second and needs a moment to kill it.
long long WaitWorkMs(const TArgs& args) {
  const long long wait = args.Milliseconds("--wait", kWaitMs);
  return wait == 0 ? 86400000 : wait + 5000;
}

void BuildRun(const TArgs& args, TParams& params) {
  namespace at = params::external;
  std::string command;
  TFailure failure;
  if (!JoinCommand(args.List("CMD"), command, failure)) return params.Refuse(failure.text, failure.hint);
  params.Text(at::kCommandLine, command);
  params.Number(at::kTimeoutMs, args.Milliseconds("--wait", kWaitMs));
}

void DecodeRun(TReader& reply, TResult& result) {
  result.Add("exit_status", "exit status", reply.Number("exit status"));
}

// As a shell passes it on; what does not fit into a status stays a failure.
int ExitOfRun(const TResult& result) {
  const long long status = std::get<long long>(result.fields[0].value);
  return status >= 0 && status <= 255 ? static_cast<int>(status) : 255;
}

// The agent leaves a macro alone that is the very end of the line, so the script's name stands in quotes, and the
// words for it are put in here rather than by the agent.
bool ScriptLine(const std::string& script, const std::vector<std::string>& words, std::string& line,
                TFailure& failure) {
  std::vector<std::string> checked = {"%script%"};
  checked.insert(checked.end(), words.begin(), words.end());
  if (!JoinCommand(checked, line, failure)) return false;
  const bool interpreted = script.compare(0, 2, "#!") == 0;
  line = (interpreted ? "" : "/bin/sh ") + ("\"%script%\"" + line.substr(strlen("%script%")));
  return true;
}

bool PrepareScript(const TView&, const TArgs& args, std::string& script, TFailure& failure) {
  if (!ReadInput(args.Text("FILE"), kMaxScript, script, failure)) return false;
  if (script.find("%0A") == std::string::npos && script.find("%0D") == std::string::npos) return true;
  return Fail(failure, TKind::kInput, "the script holds %0A or %0D, which would arrive as a line break",
              "write it another way in the script, '%''0A' for example");
}

void RunScript(TContext& context, const TArgs& args, TOutcome& outcome) {
  namespace at = params::shell_script;
  std::string line;
  if (!ScriptLine(context.content, args.List("ARG"), line, outcome.failure)) return;
  const long long waitMs = args.Milliseconds("--wait", kWaitMs);
  TParams params;
  params.Text(at::kCommandLine, line);
  params.Encoded(at::kScript, context.content);
  params.Number(at::kTimeoutS, (waitMs + 999) / 1000);
  params.Number(at::kLines, args.Number("--lines", kLines));
  TReply reply;
  if (!AskAgent(*context.agent, "TEST-ShellScript", params, reply, outcome.failure, WaitWorkMs(args))) return;

  TReader reader(reply);
  std::string result = reader.Decoded("result line");
  TTable output{"output", {{"line", "", TUnit::kNone}}, {}};
  for (std::string& text : SplitLines(reader.Decoded("output"))) output.rows.push_back({std::move(text)});
  if (!reader.Finish(outcome.failure)) return;
  const std::string prefix = "scriptres:";
  if (Lower(result.substr(0, prefix.size())) == prefix) result = Trimmed(result.substr(prefix.size()));
  outcome.result.Add("result", "result", result);
  outcome.result.tables.push_back(output);
}

}  // namespace

std::vector<TCommandRow> ScriptCommands() {
  const TArgRow wait = {"--wait", TArgKind::kSeconds, "kill it after so long, in whole seconds (30; 0 never)"};
  return {
      Simple("run", "Run a program on the host and show its exit status", "TEST-ExternalPrg",
             {wait,
              kExitStatus,
              {"CMD...", TArgKind::kText, "the program and its arguments, behind --; no shell reads them"}},
             BuildRun, DecodeRun)
          .Works(WaitWorkMs)
          .Changes(OverManyHosts)
          .Exits(ExitOfRun),
      Custom("script", "Send a script, run it on the host and show its result and output",
             {wait,
              {"--lines", TArgKind::kNumber, "so many lines of its output at most (1000)"},
              {"FILE", TArgKind::kInputFile, "the script; one without #! is run by /bin/sh"},
              {"[ARG...]", TArgKind::kText, "arguments for it, behind --"}},
             RunScript)
          .Works(WaitWorkMs)
          .Changes(OverManyHosts)
          .Prepare(PrepareScript),
  };
}
