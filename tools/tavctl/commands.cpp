#include "tavctl/commands.h"

#include "client/text.h"
#include "core/clock.h"

bool Always(const TArgs&, bool) {
  return true;
}
bool OverManyHosts(const TArgs&, bool manyHosts) {
  return manyHosts;
}

TCommandRow Simple(const char* name, const char* help, const char* wire, std::vector<TArgRow> args, TBuild build,
                   TDecode decode) {
  TCommandRow row{name, help, std::move(args)};
  row.wire = wire;
  row.build = build;
  row.decode = decode;
  return row;
}

TCommandRow Custom(const char* name, const char* help, std::vector<TArgRow> args, TRun run) {
  TCommandRow row{name, help, std::move(args)};
  row.run = run;
  return row;
}

const std::vector<TCommandRow>& AllCommands() {
  static const std::vector<TCommandRow> all = [] {
    using TGroup = std::vector<TCommandRow> (*)();
    static const TGroup kGroups[] = {InfoCommands,      FileCommands,      LogCommands,  NetCommands,
                                     ScriptCommands,    ActionCommands,    ListCommands, SettingsCommands,
                                     LifecycleCommands, UpgradeCommands,   RawCommands,  ConfigCommands,
                                     ExprCommands,      CompletionCommands};
    std::vector<TCommandRow> rows;
    for (const TGroup group : kGroups)
      for (TCommandRow& row : group()) rows.push_back(std::move(row));
    for (TCommandRow& row : rows) {
      if (row.changes != nullptr) row.args.push_back({"--yes", TArgKind::kFlag, "do not ask first"});
      if (row.fragile)
        row.args.push_back({kMaxFailures, TArgKind::kCount, "over many hosts stop after so many (1)"});
    }
    return rows;
  }();
  return all;
}

namespace {

void RunSimple(const TCommandRow& row, TContext& context, const TArgs& args, TOutcome& outcome) {
  TParams params;
  row.build(args, params);
  TReply reply;
  const long long workMs = row.workMs == nullptr ? 0 : row.workMs(args);
  if (!AskAgent(*context.agent, row.wire, params, reply, outcome.failure, workMs)) return;
  TReader reader(reply);
  row.decode(reader, outcome.result);
  if (!reader.Finish(outcome.failure)) outcome.result = TResult();
}

}  // namespace

TOutcome RunCommand(const TCommandRow& row, TContext& context, const TArgs& args) {
  TOutcome outcome;
  const long long start = MonotonicUs();
  if (row.run != nullptr)
    row.run(context, args, outcome);
  else
    RunSimple(row, context, args, outcome);
  if (outcome.Ok() && row.exits != nullptr && args.Has("--exit-status")) outcome.status = row.exits(outcome.result);
  if (outcome.Ok() && !outcome.result.note.empty()) Note(context.view, "tavctl: " + outcome.result.note);
  outcome.elapsedMs = static_cast<double>(MonotonicUs() - start) / 1000;
  return outcome;
}

void Note(const TView& view, const std::string& text) {
  if (!view.quiet) WriteErr(Visible(text) + "\n");
}
