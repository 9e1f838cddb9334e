// expr: a search expression explained and tried.
#include "checks/linefilter.h"
#include "client/text.h"
#include "tavctl/commands.h"
#include "tavctl/exprview.h"

namespace {

void RunExpr(TContext& context, const TArgs& args, TOutcome& outcome) {
  const std::string text = args.Text("EXPR");
  const TExprView view = ViewExpression(text);
  if (!view.valid) {
    const bool oneLine = text.find_first_of("\t\r\n") == std::string::npos;
    if (context.view.format == TFormat::kTable && oneLine)
      WriteErr(text + "\n" + std::string(view.faultAt, ' ') + "^\n");
    Fail(outcome.failure, TKind::kUsage, view.fault + " (at byte " + std::to_string(view.faultAt + 1) + ")",
         "strings stand in quotes of either kind, 'and' and 'or' between them; this one matches nothing");
    return;
  }
  outcome.result.Add("grouping", "read as", view.grouping);
  if (!args.Has("--line")) return;
  const std::string line = args.Text("--line");
  const int found =
      SearchForExpression(ToString(line), ToString(text), !args.Has("--ignore-case"), args.Has("--word"));
  outcome.result.Add("matches", "matches", found == 1, TUnit::kYesNo);
}

}  // namespace

std::vector<TCommandRow> ExprCommands() {
  return {
      Custom("expr", "Explain a search expression and try it on a line",
             {{"EXPR", TArgKind::kText, "the expression"},
              {"--line", TArgKind::kText, "a line to try it on"},
              {"-i,--ignore-case", TArgKind::kFlag, "letter case does not count"},
              {"-w,--word", TArgKind::kFlag, "whole words only"}},
             RunExpr)
          .Local(),
  };
}
