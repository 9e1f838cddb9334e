// Following a log through an agent that keeps no state: every line that matches is handed on once, none is lost.
//
// An agent takes a known size of 0 for the first check and skips to the log's end, so 0 is sent once only, and
// never afterwards, however empty the log.  From then on each request carries the position behind the last complete
// line, with a known size that tells the agent to read on.
//
// The agent notices that a log was cut only by its size; one that has grown past the old position again looks like
// an untouched one.  So the last complete line is remembered as an anchor: when it no longer stands where it stood,
// the log is a new one and is read from its start.
//
// No I/O of its own: requests go through a function it is given.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "client/failures.h"

struct TLogFilter {
  std::string text;
  bool expression = false;
  bool ignoreCase = false;
  bool wholeWord = false;
};

struct TLogQuery {
  std::string file;
  long long position = 0, knownSize = 0;
  bool scanAll = false;
  TLogFilter first, second;
  bool hasSecond = false;
  bool macros = false;
};

struct TLogAnswer {
  long long match = 0;  // where the last match lies, counted from 1; 0: none
  std::string line;     // at most 1024 bytes of it
  bool more = false;
  long long position = 0, knownSize = 0, knownAge = 0, size = 0;
  bool byFirst = false;
  std::string file;  // the one that was read
};

using TLogAsk = std::function<bool(const TLogQuery&, TLogAnswer&, TFailure&)>;

// Where we are in one file.
struct TLogPlace {
  std::string file;
  long long position = 0;
  long long size = 0, age = 0;  // as last seen; for people only
  long long anchor = -1;        // where the bytes of the last complete line begin; -1: there is none
  std::string anchorLine;
};

struct TLogState {
  std::string pattern;  // the name as the user gave it
  // The file now followed stands first; the others are those that a wildcard or macro named before.
  std::vector<TLogPlace> places;
};

struct TLogLine {
  long long offset = 0;
  std::string text;
  int filter = 1;  // which of the two matched
  std::string file;
};

class TLogWatch {
 public:
  // `sink` gets each line; when it returns false it has not taken it, and the check ends with the state before it.
  using TSink = std::function<bool(const TLogLine& line)>;

  TLogWatch(TLogQuery ask, TLogAsk through) : query(std::move(ask)), send(std::move(through)) {}

  // Hands on all that is new.  A state without places is a first check: with `fromStart` everything is new, else
  // nothing.  On failure the state stays behind the last line that was taken.
  bool Check(TLogState& state, bool fromStart, const TSink& sink, TFailure& failure);

 private:
  bool Begin(TLogState& state, bool fromStart, TFailure& failure);
  bool Align(TLogPlace& place, long long size, TFailure& failure);
  bool Choose(TLogState& state, const TSink& sink, TFailure& failure);
  bool Verify(TLogPlace& place, TFailure& failure);
  bool Drain(TLogPlace& place, const TSink& sink, TFailure& failure);
  bool Anchor(TLogPlace& place, TFailure& failure);
  bool AskAt(const std::string& file, bool macros, long long position, bool scanAll, TLogAnswer& answer,
             TFailure& failure);

  TLogQuery query;
  TLogAsk send;
  bool stopped = false;
};
