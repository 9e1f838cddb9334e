// Finds the lines of a log that match its filters, in the blocks of bytes as which the log is read.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "checks/blockfinder.h"
#include "checks/linefilter.h"
#include "checks/textlog.h"

// Lines end with a line feed or a carriage return, so that one that ends with both is followed by an empty one.  An
// empty line is never tested; its end is counted with the line behind it.
class TLogScan {
 public:
  // `start` is the offset in the file of the first block; the second filter may be null.  With `all` the last
  // matching line is wanted, else the first.
  TLogScan(long long start, const TTextLogFilter& filter1, const TTextLogFilter* filter2, bool all);

  // Takes the next block; false when no more is wanted.
  bool Take(const char* block, size_t n);

  long long Position() const { return position; }  // behind the last line that was not empty
  long long Result() const { return result; }      // 1-based, of the match; 0: no line matched
  int Status() const { return status; }            // of the match: 1 the first filter, 0 the second
  const String& MatchLine() const { return matchLine; }

 private:
  // A text that one of the filters can't do without, with where it was found last.
  struct TClue {
    TBlockFinder finder;
    const char* hit;
    bool looked;
  };
  struct TLine {
    const char* begin;  // null: there is none
    const char* end;
  };

  void AddClues(const TLineFilter& filter);
  bool TakeFirstLine(const char*& block, const char* end);
  bool TakeWholeLines(const char* from, const char* end);
  void Keep(const char* bytes, long long n);
  bool EndLine(const char* rest, long long n);
  bool Test(long long start, const char* line, long long n);
  bool FindFirstMatch(const char* from, const char* end);
  void FindLastMatch(const char* from, const char* end);
  TLine NextLine(const char* from, const char* end);
  TLine LineBefore(const char* from, const char* end);
  void ForgetHits();
  long long StartOf(const char* line, const char* from) const;
  void CountTo(const char* from, const char* end);

  std::vector<TLineFilter> filters;  // one or two, in their order
  std::vector<TClue> clues;
  bool everyLine = false;  // there is a filter without a clue
  bool scanAll;

  long long position;
  long long counted = 0;  // bytes since `position`
  long long result = 0;
  int status = 0;
  String matchLine;
  std::string pending;   // the line so far, from earlier blocks
  bool tooLong = false;  // the line has outgrown what is kept
};
