#include "client/logwatch.h"

#include <algorithm>

namespace {

// Any but 0 makes the agent read from the position; with a known age of 0 beside it, it never takes the log for
// unchanged, which two writes within a second would otherwise hide.
constexpr long long kReadOn = 1;
constexpr long long kLookBack = 4096;
constexpr size_t kMaxPlaces = 16;

// A plain name stands for one file always.
bool MayChange(const TLogQuery& query) {
  return query.macros || query.file.find_first_of("*?[") != std::string::npos;
}

// True for every line: nothing stands in quotes, so nothing is found.
TLogFilter EveryLine() {
  return {"not ''", true, false, false};
}

}  // namespace

// A request for any line, to learn where lines stand.
bool TLogWatch::AskAt(const std::string& file, bool macros, long long position, bool scanAll, TLogAnswer& answer,
                      TFailure& failure) {
  TLogQuery any;
  any.file = file;
  any.macros = macros;
  any.position = position;
  any.knownSize = kReadOn;
  any.scanAll = scanAll;
  any.first = EveryLine();
  return send(any, answer, failure);
}

// Finds the end of the last complete line: what stands behind it is not yet a line and will be reported whole.
bool TLogWatch::Align(TLogPlace& place, long long size, TFailure& failure) {
  for (long long back = kLookBack;; back *= 16) {
    const long long from = std::max(0LL, size - back);
    TLogAnswer answer;
    if (!AskAt(place.file, false, from, true, answer, failure)) return false;
    place.position = std::max(0LL, answer.position);
    place.size = answer.size;
    place.age = answer.knownAge;
    place.anchor = answer.match > 0 ? answer.match - 1 : -1;
    place.anchorLine = answer.line;
    if (answer.match > 0 || from == 0) return true;
  }
}

bool TLogWatch::Begin(TLogState& state, bool fromStart, TFailure& failure) {
  TLogAnswer answer;
  TLogPlace place;
  if (fromStart) {
    if (!AskAt(query.file, query.macros, 0, false, answer, failure)) return false;
    place.file = answer.file;
  } else {
    TLogQuery first = query;  // with a known size of 0: the agent's own first check
    first.scanAll = false;
    if (!send(first, answer, failure)) return false;
    place.file = answer.file;
    if (!Align(place, answer.size, failure)) return false;
  }
  state.places = {place};
  return true;
}

// True when the anchor stands where it stood; else the place is set to the start of what is a new log.
bool TLogWatch::Verify(TLogPlace& place, TFailure& failure) {
  if (place.anchor < 0) return true;
  TLogAnswer answer;
  if (!AskAt(place.file, false, place.anchor, false, answer, failure)) return false;
  if (answer.match == place.anchor + 1 && answer.line == place.anchorLine) return true;
  place.position = 0;
  place.anchor = -1;
  return true;
}

// Learns which file the name stands for now.  The rest of the old one is read first, as long as it is there.
bool TLogWatch::Choose(TLogState& state, const TSink& sink, TFailure& failure) {
  TLogAnswer answer;
  if (!AskAt(query.file, query.macros, state.places[0].position, false, answer, failure)) return false;
  if (answer.file == state.places[0].file) return true;
  TFailure gone;
  if (Verify(state.places[0], gone)) (void)Drain(state.places[0], sink, gone);
  if (stopped) return true;
  const auto known = std::find_if(state.places.begin(), state.places.end(),
                                  [&](const TLogPlace& place) { return place.file == answer.file; });
  TLogPlace place;
  place.file = answer.file;
  if (known != state.places.end()) {
    place = *known;
    state.places.erase(known);
  }
  state.places.insert(state.places.begin(), place);
  if (state.places.size() > kMaxPlaces) state.places.pop_back();
  return true;
}

bool TLogWatch::Drain(TLogPlace& place, const TSink& sink, TFailure& failure) {
  TLogQuery next = query;
  next.file = place.file;
  next.macros = false;
  next.knownSize = kReadOn;
  next.scanAll = false;
  for (TLogAnswer answer;;) {
    next.position = place.position;
    if (!send(next, answer, failure)) return false;
    if (answer.match > 0 && !sink({answer.match - 1, answer.line, answer.byFirst ? 1 : 2, answer.file}))
      return stopped = true;
    place.position = std::max(0LL, answer.position);
    place.size = answer.size;
    place.age = answer.knownAge;
    if (!answer.more) return true;
  }
}

// Remembers the last complete line.  A log that is now shorter than what was read was cut in between.
bool TLogWatch::Anchor(TLogPlace& place, TFailure& failure) {
  TLogAnswer answer;
  if (!AskAt(place.file, false, std::max(0LL, place.position - kLookBack), true, answer, failure)) return false;
  if (answer.size < place.position) place.position = 0;
  place.anchor = answer.match > 0 ? answer.match - 1 : -1;
  place.anchorLine = answer.line;
  return true;
}

bool TLogWatch::Check(TLogState& state, bool fromStart, const TSink& sink, TFailure& failure) {
  stopped = false;
  state.pattern = query.file;
  if (state.places.empty()) {
    if (!Begin(state, fromStart, failure)) return false;
    if (!fromStart) return true;
  } else if (MayChange(query) && !Choose(state, sink, failure)) {
    return false;
  }
  if (stopped) return true;
  TLogPlace& place = state.places[0];
  if (!Verify(place, failure)) return false;
  const long long before = place.position;
  if (!Drain(place, sink, failure)) return false;
  return stopped || (place.position == before && place.anchor >= 0) || Anchor(place, failure);
}
