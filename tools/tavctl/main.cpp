// tavctl: the command-line client.  Finds out whom to ask and with what password, runs the command for each agent
// and turns the worst outcome into the exit status.
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "protocol/twofish.h"
#include "tavctl/manyhosts.h"
#include "tavctl/options.h"

namespace {

bool ColourWanted(const TOptions& options, int fd) {
  const char* noColour = getenv("NO_COLOR");
  const char* terminal = getenv("TERM");
  if (options.noColour || (noColour != nullptr && *noColour != '\0')) return false;
  return isatty(fd) != 0 && (terminal == nullptr || strcmp(terminal, "dumb") != 0);
}

TView ViewOf(const TOptions& options) {
  TView view;
  view.format = options.format;
  view.colour = ColourWanted(options, STDOUT_FILENO);
  view.errColour = ColourWanted(options, STDERR_FILENO);
  view.quiet = options.quiet;
  view.verbose = options.verbose;
  return view;
}

// Writes an outcome and carries out what waits for that; returns the exit status.
int Report(const TView& view, const TOutput& report, TOutcome& outcome) {
  const bool silent = outcome.printed && (outcome.Ok() || view.format != TFormat::kJson);
  if (!silent && !WriteOut(Rendered(view, report)))
    Fail(outcome.failure, TKind::kInternal, "the output cannot be written",
         "is the disk full, or the reader gone?");
  else if (TFailure failure; outcome.commit && !outcome.commit(failure) && outcome.Ok())
    outcome.failure = failure;
  WriteErr(RenderedFailure(view, report));
  return ExitStatus(outcome.failure.kind);
}

int ReportFailure(const TView& view, const std::string& command, const TFailure& failure) {
  TOutcome outcome;
  outcome.failure = failure;
  return Report(view, {command, nullptr, &outcome}, outcome);
}

bool Confirmed(const TInvocation& invocation, const std::string& where, TFailure& failure) {
  const TConfirm confirm = invocation.row->confirm;
  if (confirm == TConfirm::kNever || invocation.args.Has("--yes")) return true;
  const bool terminal = isatty(STDIN_FILENO) != 0 && isatty(STDERR_FILENO) != 0;
  if (!terminal)
    return confirm == TConfirm::kOnTerminal ||
           Fail(failure, TKind::kUsage,
                std::string("'") + invocation.row->name + "' needs --yes when nobody can be asked");
  WriteErr(std::string("tavctl: '") + invocation.row->name + "' on " + where + ": go on? [y/N] ");
  char answer[16] = "";
  if (fgets(answer, sizeof answer, stdin) != nullptr && (answer[0] == 'y' || answer[0] == 'Y')) return true;
  return Fail(failure, TKind::kUsage, "not confirmed, nothing was done", "answer y, or give --yes");
}

bool FindTargets(TOptions& options, std::vector<TTarget>& targets, TFailure& failure) {
  if (!options.secrets.agentConfig.empty()) {
    TAgentConfig config;
    if (!ReadAgentConfig(options.secrets.agentConfig, config, nullptr, failure)) return false;
    if (options.port == 0) options.port = config.port;
    if (options.host.empty()) options.host = config.host;
  }
  if (options.port == 0) options.port = kDefaultPort;
  if (!options.hostsFile.empty()) return ReadHosts(options.hostsFile, options.port, targets, failure);
  TTarget target;
  if (!options.host.empty()) target.host = options.host;
  target.port = options.port;
  targets.push_back(target);
  return true;
}

TOutcome AskOne(const TInvocation& invocation, TAgent agent, TView view) {
  TContext context{view, &agent, invocation.row->name};
  if (view.verbose) Note(view, std::string("tavctl: ") + invocation.row->name + " -> " + agent.target.Name());
  return RunCommand(*invocation.row, context, invocation.args);
}

int RunRemote(TInvocation& invocation, TView view) {
  const std::string command = invocation.row->name;
  TFailure failure;
  std::vector<TTarget> targets;
  if (!FindTargets(invocation.options, targets, failure)) return ReportFailure(view, command, failure);
  view.many = !invocation.options.hostsFile.empty();
  if (view.many && invocation.row->oneHost) {
    Fail(failure, TKind::kUsage, "'" + command + "' works with one host at a time", "use -H instead of --hosts");
    view.many = false;
    return ReportFailure(view, command, failure);
  }
  const std::string where = view.many ? std::to_string(targets.size()) + " hosts" : targets[0].Name();
  TAgent agent;
  agent.timeoutMs = invocation.options.timeoutMs;
  {
    String password;
    const bool ready =
        FindPassword(invocation.options.secrets, password, failure) && Confirmed(invocation, where, failure);
    if (!ready) return view.many = false, ReportFailure(view, command, failure);
    agent.password = std::make_shared<const TPasswordKeys>(password);
  }
  if (!view.many) {
    agent.target = targets[0];
    TOutcome outcome = AskOne(invocation, agent, view);
    return Report(view, {command, &targets[0], &outcome}, outcome);
  }
  for (const TTarget& target : targets) view.nameWidth = std::max(view.nameWidth, target.Name().size());
  int worst = 0;
  AskMany(
      targets, invocation.options.jobs,
      [&](const TTarget& target) {
        TAgent own = agent;
        own.target = target;
        return AskOne(invocation, own, view);
      },
      [&](const TTarget& target, TOutcome& outcome) {
        worst = std::max(worst, Report(view, {command, &target, &outcome}, outcome));
      });
  return worst;
}

}  // namespace

int main(int argc, char** argv) {
  TInvocation invocation;
  TFailure failure;
  const bool parsed = ParseCommandLine(argc, argv, invocation, failure);
  const TView view = ViewOf(invocation.options);
  if (!parsed) return ReportFailure(view, "", failure);
  if (invocation.row == nullptr) return 0;
  if (invocation.row->local) {
    TContext context{view, nullptr, invocation.row->name};
    TOutcome outcome = RunCommand(*invocation.row, context, invocation.args);
    return Report(view, {context.command, nullptr, &outcome}, outcome);
  }
  Twofish_initialise();
  return RunRemote(invocation, view);
}
