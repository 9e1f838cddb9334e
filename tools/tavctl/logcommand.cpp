// test log: what is new in a log and matches.
#include <errno.h>
#include <signal.h>
#include <time.h>

#include <atomic>

#include "client/logask.h"
#include "client/logstate.h"
#include "client/logwatch.h"
#include "client/text.h"
#include "core/clock.h"
#include "tavctl/commands.h"
#include "tavctl/exprview.h"

namespace {

constexpr int kLinesPerSave = 256;

std::atomic<bool> interrupted{false};  // raised by SIGINT and SIGTERM: end behind the line at hand

// A text with quotes in it is an expression; any other is looked for as it stands.
bool ParseFilter(const TArgs& args, const std::string& text, TLogFilter& filter, TFailure& failure) {
  filter.text = text;
  filter.ignoreCase = args.Has("--ignore-case");
  filter.wholeWord = args.Has("--word");
  filter.expression = text.find_first_of("'\"") != std::string::npos;
  if (text.empty())
    return Fail(failure, TKind::kUsage, "an empty --match matches nothing", "give a text or an expression");
  if (text.find("%0A") != std::string::npos || text.find("%0D") != std::string::npos)
    return Fail(failure, TKind::kUsage, "%0A and %0D would arrive as line breaks, which no line holds",
                "leave them out");
  if (!filter.expression) return true;
  const TExprView view = ViewExpression(text);
  return view.valid || Fail(failure, TKind::kUsage, "the expression is malformed: " + view.fault,
                            "'tavctl expr' shows where; quotes make it an expression");
}

bool ParseQuery(const TArgs& args, TLogQuery& query, TFailure& failure) {
  query.file = args.Text("FILE");
  query.macros = args.Has("--macros");
  query.hasSecond = args.Has("--match2");
  return ParseFilter(args, args.Text("--match"), query.first, failure) &&
         (!query.hasSecond || ParseFilter(args, args.Text("--match2"), query.second, failure));
}

// Where the lines go: to the screen at once, or into the one JSON object of a single check.
class TLineOut {
 public:
  TLineOut(const TContext& from, const TLogQuery& query, bool follows)
      : context(from), twoFilters(query.hasSecond), collect(context.view.format == TFormat::kJson && !follows) {
    if (context.view.many) collect = true;
    matches.columns = {{"filter", "", TUnit::kNone},
                       {"line", "", TUnit::kNone},
                       {"offset", "", TUnit::kNone},
                       {"file", "", TUnit::kNone}};
    matches.shown = 2;
    if (!twoFilters) std::swap(matches.columns[0], matches.columns[1]);
    if (!twoFilters) matches.shown = 1;
  }

  bool Take(const TLogLine& line) {
    ++count;
    if (!collect) return WriteOut(Text(line));
    const TValue filter = static_cast<long long>(line.filter), text = line.text;
    matches.rows.push_back({twoFilters ? filter : text, twoFilters ? text : filter, line.offset, line.file});
    return true;
  }

  bool Collects() const { return collect; }
  long long Count() const { return count; }
  TTable& Matches() { return matches; }

 private:
  std::string Text(const TLogLine& line) const {
    if (context.view.format == TFormat::kJson) {
      TOutcome one;
      one.result.Add("line", "", line.text);
      one.result.Add("offset", "", line.offset);
      one.result.Add("filter", "", static_cast<long long>(line.filter));
      one.result.Add("file", "", line.file);
      return RenderedJson({context.command, &context.agent->target, &one}) + "\n";
    }
    const std::string mark = twoFilters ? std::to_string(line.filter) + "\t" : "";
    return mark + Visible(line.text) + "\n";
  }

  const TContext& context;
  bool twoFilters, collect;
  long long count = 0;
  TTable matches{"matches", {}, {}};
};

void CatchSignals() {
  struct sigaction action {};
  action.sa_handler = [](int) { interrupted = true; };
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  action.sa_handler = SIG_IGN;  // a reader that goes away shows as a failed write, after which nothing is saved
  sigaction(SIGPIPE, &action, nullptr);
}

struct TLogRun {
  TContext& context;
  TAgent agent;
  TLogQuery query;
  TLogState state;
  TLogStateFile file;
  TLineOut out;
  bool writeFailed = false;

  TLogRun(TContext& from, const TLogQuery& asked, bool follows)
      : context(from), agent(*from.agent), query(asked), out(from, asked, follows) {}
};

bool CheckOnce(TLogRun& run, bool fromStart, TOutcome& outcome) {
  const auto ask = [&](const TLogQuery& query, TLogAnswer& answer, TFailure& failure) {
    return AskLog(run.agent, query, answer, failure);
  };
  int unsaved = 0;
  TFailure saving;
  const auto take = [&](const TLogLine& line) {
    if (interrupted) return false;
    if (!run.out.Take(line)) return run.writeFailed = true, false;
    // The watch moves on behind this line only after it was taken, so what is saved here repeats it at worst.
    if (!run.out.Collects() && ++unsaved % kLinesPerSave == 0) (void)run.file.Save(run.state, saving);
    return true;
  };
  TLogWatch watch(run.query, ask);
  const bool checked = watch.Check(run.state, fromStart, take, outcome.failure);
  if (run.writeFailed)
    return Fail(outcome.failure, TKind::kInternal, "the output cannot be written", "is its reader gone?");
  return checked;
}

bool Save(TLogRun& run, TOutcome& outcome) {
  return run.state.places.empty() || run.file.Save(run.state, outcome.failure);
}

// One check; the lines of a JSON object are saved as seen only when it was written.
void RunOnce(const std::shared_ptr<TLogRun>& run, const TArgs& args, TOutcome& outcome) {
  const bool checked = CheckOnce(*run, args.Has("--from-start"), outcome);
  if (!run->out.Collects()) {
    outcome.printed = true;
    const TFailure failure = outcome.failure;
    if (!Save(*run, outcome) || !checked) {
      if (!checked) outcome.failure = failure;
      return;
    }
    const TLogPlace& place = run->state.places[0];
    const TView& view = run->context.view;
    if (view.format == TFormat::kTable)
      Note(view, NumberText(run->out.Count()) +
                     (run->out.Count() == 1 ? " new line matches in " : " new lines match in ") + place.file +
                     " (" + SizeText(place.size) + ")");
    return;
  }
  if (!checked && run->out.Count() == 0) return;
  outcome.result.Add("file", "file", run->state.places[0].file);
  outcome.result.Add("size", "size", run->state.places[0].size, TUnit::kBytes);
  outcome.result.tables.push_back(std::move(run->out.Matches()));
  outcome.commit = [run](TFailure& failure) { return run->file.Save(run->state, failure); };
}

// Ends early at a signal.
void Rest(long long ms) {
  const timespec pause{ms / 1000, ms % 1000 * 1000000};
  (void)nanosleep(&pause, nullptr);
}

// Checks until it is interrupted.  An agent or a log that is away for a while is waited for.
void Follow(TLogRun& run, const TArgs& args, TOutcome& outcome) {
  const long long pauseMs = std::max(50LL, args.Milliseconds("--interval", 1000));
  outcome.printed = true;
  std::string said;
  bool fromStart = args.Has("--from-start");
  while (!interrupted) {
    outcome.failure = TFailure();
    run.agent.deadline = MonotonicMs() + run.context.patienceMs;  // for each look
    const bool checked = CheckOnce(run, fromStart, outcome);
    TOutcome saved;
    if (!Save(run, saved)) return void(outcome.failure = saved.failure);
    const TKind kind = outcome.failure.kind;
    const bool passing = kind == TKind::kAgent || kind == TKind::kUnreachable || kind == TKind::kTimeout;
    if (!checked && (run.writeFailed || !passing)) return;
    // A log that comes to be while we wait for it is new from its first line on.
    if (!checked && kind == TKind::kAgent && run.state.places.empty()) fromStart = true;
    if (!checked && outcome.failure.text != said)
      Note(run.context.view, "tavctl: " + outcome.failure.text + "; waiting");
    said = outcome.failure.text;
    if (!interrupted) Rest(pauseMs);
  }
  outcome.failure = TFailure();
}

void RunLog(TContext& context, const TArgs& args, TOutcome& outcome) {
  TLogQuery query;
  const bool follows = args.Has("--follow");
  if (!ParseQuery(args, query, outcome.failure)) return;
  if (context.view.many && (follows || args.Has("--state"))) {
    Fail(outcome.failure, TKind::kUsage, "--follow and --state are for one host", "use -H instead of --hosts");
    return;
  }
  auto run = std::make_shared<TLogRun>(context, query, follows);
  std::string path = args.Text("--state");
  // Following without a file remembers nothing, as one expects of it.
  const bool kept = !path.empty() || !follows;
  if (kept) {
    if (path.empty() && !DefaultStatePath(context.agent->target, query.file, path, outcome.failure)) return;
    if (!run->file.Open(path, context.agent->target, outcome.failure)) return;
    if (!run->file.Load(query.file, run->state, outcome.failure)) return;
  }
  CatchSignals();
  if (follows) return Follow(*run, args, outcome);
  RunOnce(run, args, outcome);
}

}  // namespace

std::vector<TCommandRow> LogCommands() {
  const TArgKind text = TArgKind::kText, flag = TArgKind::kFlag;
  return {
      Custom("test log", "Show the lines of a log that are new and match",
             {{"FILE", text, "the log, or a wildcard whose first match is taken"},
              {"--match", text, "a text, or an expression such as \"'error' and not 'timeout'\""},
              {"--match2", text, "lines that match only this are shown, too, with a 2 in front"},
              {"-i,--ignore-case", flag, "letter case does not count"},
              {"-w,--word", flag, "whole words only"},
              {"--state", TArgKind::kOutputFile, "remember here what was shown (in the user's state folder)"},
              {"--from-start", flag, "at the first check show what is already there"},
              {"--follow", flag, "go on until interrupted"},
              {"--interval", TArgKind::kSeconds, "look so often with --follow (1)"},
              {"--macros", flag, "put names in place of %newestfile% and the like"}},
             RunLog),
  };
}
