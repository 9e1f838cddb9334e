#include "client/logask.h"

namespace {

// The agent tries three times, a second apart, to open a log, and a large one takes it a while to read.
constexpr long long kWorkMs = 60000;

void PutFilter(size_t first, const TLogFilter& filter, TParams& params) {
  params.Encoded(first, filter.text);
  params.Flag(first + 1, filter.expression);
  params.Flag(first + 2, !filter.ignoreCase);
  params.Flag(first + 3, filter.wholeWord);
}

}  // namespace

bool AskLog(const TAgent& agent, const TLogQuery& query, TLogAnswer& answer, TFailure& failure) {
  TParams params;
  params.Text(1, query.file);
  params.Number(2, query.position);
  params.Number(3, query.knownSize);
  params.Number(4, 0);
  params.Flag(5, query.scanAll);
  PutFilter(6, query.first, params);
  params.Flag(10, query.hasSecond);
  if (query.hasSecond) PutFilter(11, query.second, params);
  params.Flag(query.hasSecond ? 20 : 16, query.macros);
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
