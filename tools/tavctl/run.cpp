#include "tavctl/run.h"

#include <unistd.h>

#include <algorithm>
#include <exception>

#include "client/inputfiles.h"
#include "core/clock.h"
#include "protocol/twofish.h"
#include "tavctl/manyhosts.h"
#include "tavctl/prompt.h"

namespace {

int StatusOf(const TOutcome& outcome) {
  if (outcome.Ok() && outcome.status >= 0) return outcome.status;
  return ExitStatus(outcome.failure.kind);
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
  return StatusOf(outcome);
}

TOutcome Carry(const TCommandRow& row, TContext& context, const TArgs& args) {
  try {
    return RunCommand(row, context, args);
  } catch (const std::exception& fault) {
    TOutcome outcome;
    Fail(outcome.failure, TKind::kInternal, fault.what());
    return outcome;
  }
}

// `copy` keeps an agent's configuration that came from standard input, which is read here and for the password.
bool FindTargets(TOptions& options, std::vector<TTarget>& targets, TFd& copy, TFailure& failure) {
  if (!options.secrets.agentConfig.empty()) {
    TAgentConfig config;
    const std::string given = options.secrets.agentConfig;
    if (!InputPath(given, options.secrets.agentConfig, copy, failure)) return false;
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

// All that a command may take one host: the user's word, or ours and what the command itself waits for.
long long PatienceMs(const TInvocation& invocation) {
  if (invocation.options.deadlineMs > 0) return invocation.options.deadlineMs;
  const TCommandRow& row = *invocation.row;
  const TArgs& args = invocation.args;
  return kDefaultDeadlineMs + (row.workMs == nullptr ? 0 : row.workMs(args)) + args.Milliseconds("--wait", 0) +
         args.Milliseconds("--for", 0);
}

// One run for all hosts: what is made ready once, and asked with.
struct TRound {
  TInvocation& invocation;
  TView view;
  std::vector<TTarget> targets;
  TAgent agent;
  std::string content;
  TFd configCopy;

  TRound(TInvocation& what, const TView& how) : invocation(what), view(how) {}
  const TCommandRow& Row() const { return *invocation.row; }
};

// All that must be in order before the first host is asked.
bool MakeReady(TRound& run, TFailure& failure) {
  const TInvocation& invocation = run.invocation;
  const TCommandRow& row = run.Row();
  const bool many = !invocation.options.hostsFile.empty();
  if (!FindTargets(run.invocation.options, run.targets, run.configCopy, failure)) return false;
  if (many && row.oneHost)
    return Fail(failure, TKind::kUsage, std::string("'") + row.name + "' works with one host at a time",
                "use -H instead of --hosts");
  if (row.prepare != nullptr && !row.prepare(run.view, invocation.args, run.content, failure)) return false;
  String password;
  if (!FindPassword(invocation.options.secrets, AskForPassword, password, failure)) return false;
  const std::string where = many ? std::to_string(run.targets.size()) + " hosts" : run.targets[0].Name();
  const bool asks = row.changes != nullptr && row.changes(invocation.args, many) && !invocation.args.Has("--yes");
  if (asks && !AskToGoOn(row.name, where, failure)) return false;
  run.agent.timeoutMs = invocation.options.timeoutMs;
  run.agent.password = std::make_shared<const TPasswordKeys>(password);
  return true;
}

TOutcome AskOne(const TRound& run, const TTarget& target) {
  TAgent agent = run.agent;
  agent.target = target;
  const long long patienceMs = PatienceMs(run.invocation);
  agent.deadline = MonotonicMs() + patienceMs;
  TContext context{run.view,  &agent, run.Row().name, run.content, run.invocation.options.secrets.agentConfig,
                   patienceMs};
  if (run.view.verbose) Note(run.view, "tavctl: " + context.command + " -> " + target.Name());
  return Carry(run.Row(), context, run.invocation.args);
}

int RunRemote(TRound& run) {
  TFailure failure;
  const std::string command = run.Row().name;
  if (!MakeReady(run, failure)) return ReportFailure(run.view, command, failure);
  if (run.invocation.options.hostsFile.empty()) {
    TOutcome outcome = AskOne(run, run.targets[0]);
    return Report(run.view, {command, &run.targets[0], &outcome}, outcome);
  }
  run.view.many = true;
  for (const TTarget& target : run.targets) run.view.nameWidth = std::max(run.view.nameWidth, target.Name().size());
  TFleetPlan plan;
  plan.jobs = run.invocation.options.jobs;
  if (run.Row().fragile) plan.maxFailures = run.invocation.args.Number(kMaxFailures, 1);
  int worst = 0;
  AskMany(
      run.targets, plan, [&run](const TTarget& target) { return AskOne(run, target); },
      [&](const TTarget& target, TOutcome& outcome) {
        worst = std::max(worst, Report(run.view, {command, &target, &outcome}, outcome));
      });
  return worst;
}

}  // namespace

int ReportFailure(const TView& view, const std::string& command, const TFailure& failure) {
  TOutcome outcome;
  outcome.failure = failure;
  return Report(view, {command, nullptr, &outcome}, outcome);
}

int Run(TInvocation& invocation, const TView& view) {
  if (!invocation.row->local) {
    Twofish_initialise();
    TRound run(invocation, view);
    return RunRemote(run);
  }
  TContext context{view, nullptr, invocation.row->name, "", "", 0};
  TOutcome outcome = Carry(*invocation.row, context, invocation.args);
  return Report(view, {context.command, nullptr, &outcome}, outcome);
}
