#include "client/logask.h"
#include "protocol/parameters.h"

namespace {

// The agent tries three times, a second apart, to open a log, and a large one takes it a while to read.
constexpr long long kWorkMs = 60000;

void PutFilter(int first, const TLogFilter& filter, TParams& params) {
  namespace at = params::text_log;
  params.Encoded(first + at::kExpression, filter.text);
  params.Flag(first + at::kIsExpression, filter.expression);
  params.Flag(first + at::kCaseSensitive, !filter.ignoreCase);
  params.Flag(first + at::kWholeWord, filter.wholeWord);
}

}  // namespace

bool AskLog(const TAgent& agent, const TLogQuery& query, TLogAnswer& answer, TFailure& failure) {
  namespace at = params::text_log;
  TParams params;
  params.Text(at::kFile, query.file);
  params.Number(at::kPosition, query.position);
  params.Number(at::kKnownSize, query.knownSize);
  params.Number(at::kKnownAge, 0);
  params.Flag(at::kScanAll, query.scanAll);
  PutFilter(at::kFirstFilter, query.first, params);
  params.Flag(at::kUseSecond, query.hasSecond);
  if (query.hasSecond) PutFilter(at::kSecondFilter, query.second, params);
  params.Flag(query.hasSecond ? at::kMacrosBehindSecond : at::kMacros, query.macros);
  TReply reply;
  if (!AskAgent(agent, "TEST-TextLog2", params, reply, failure, kWorkMs)) return false;
  TReader reader(reply);
  answer.match = reader.Number("place of the match");
  answer.line = reader.Text("line");
  answer.more = reader.Flag("more flag");
  answer.position = reader.Number("position");
  answer.knownSize = reader.Number("known size");
  answer.knownAge = reader.Number("known age");
  answer.size = reader.Number("size");
  answer.byFirst = reader.Flag("status");
  answer.file = reader.Text("file name");
  return reader.Finish(failure);
}
