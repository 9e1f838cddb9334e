#include "checks/logscan.h"

#include <string.h>

#include <algorithm>
#include <utility>

// A block falls into the rest of a line that began before it, whole lines, and the beginning of a line that goes on
// in the next.  The whole lines are not cut one by one: the texts without which no filter matches are looked for in
// all of them at once, and only a line in which one stands is cut out and tested.  Where the last match is wanted
// the search goes backward, so that many matches cost no more than few.
//
// What must stay true: a line is tested as a whole by both filters in their order, just as if each line were; the
// clues only tell which lines can be passed over.

namespace {

constexpr size_t kWindow = 512;  // some lines: one kind of line end may be missing from the whole block

bool IsLineEnd(char c) {
  return c == '\n' || c == '\r';
}

// The first line end in [from, end), or `end`.
const char* FirstLineEnd(const char* from, const char* end) {
  while (from < end) {
    const auto n = std::min(kWindow, static_cast<size_t>(end - from));
    const char* const feed = static_cast<const char*>(memchr(from, '\n', n));
    const auto before = feed == nullptr ? n : static_cast<size_t>(feed - from);
    const char* const carriage = static_cast<const char*>(memchr(from, '\r', before));
    if (carriage != nullptr) return carriage;
    if (feed != nullptr) return feed;
    from += n;
  }
  return end;
}

// Behind the last line end in [from, end), or `from`.
const char* BehindLastLineEnd(const char* from, const char* end) {
  while (from < end) {
    const auto n = std::min(kWindow, static_cast<size_t>(end - from));
    const char* const feed = static_cast<const char*>(memrchr(end - n, '\n', n));
    const char* const behind = feed == nullptr ? end - n : feed + 1;
    const char* const carriage = static_cast<const char*>(memrchr(behind, '\r', static_cast<size_t>(end - behind)));
    if (carriage != nullptr) return carriage + 1;
    if (feed != nullptr) return feed + 1;
    end -= n;
  }
  return from;
}

TLineFilter Prepared(const TTextLogFilter& f) {
  return TLineFilter(f.expression, f.isExpression, f.caseSensitive, f.wholeWord);
}

}  // namespace

TLogScan::TLogScan(long long start, const TTextLogFilter& filter1, const TTextLogFilter* filter2, bool all)
    : scanAll(all), position(start) {
  filters.push_back(Prepared(filter1));
  if (filter2 != nullptr) filters.push_back(Prepared(*filter2));
  for (const TLineFilter& filter : filters) AddClues(filter);
}

void TLogScan::AddClues(const TLineFilter& filter) {
  if (!filter.HasNecessary()) everyLine = true;
  for (const std::string& text : filter.Necessary()) {
    clues.push_back({TBlockFinder(text, !filter.CaseSensitive()), nullptr, false});
  }
}

bool TLogScan::Take(const char* block, size_t n) {
  const char* const end = block + n;
  if (!TakeFirstLine(block, end)) return false;
  const char* const wholeEnd = BehindLastLineEnd(block, end);
  if (!TakeWholeLines(block, wholeEnd)) return false;
  counted += end - wholeEnd;
  if (wholeEnd < end) Keep(wholeEnd, end - wholeEnd);
  return true;
}

// Ends the line that began in an earlier block, if any, and moves `block` behind it.
bool TLogScan::TakeFirstLine(const char*& block, const char* end) {
  if (pending.empty() && !tooLong) return true;
  const char* const stop = FirstLineEnd(block, end);
  const char* const from = std::exchange(block, stop < end ? stop + 1 : end);
  counted += block - from;
  if (stop < end) return EndLine(from, stop - from);
  Keep(from, end - from);
  return true;
}

// Adds to the line that began in an earlier block, or begins one.
void TLogScan::Keep(const char* bytes, long long n) {
  tooLong = tooLong || n > kLongestLine - static_cast<long long>(pending.size());
  if (tooLong)
    pending = std::string();
  else
    pending.append(bytes, static_cast<size_t>(n));
}

bool TLogScan::EndLine(const char* rest, long long n) {
  Keep(rest, n);
  const long long start = position;
  position += std::exchange(counted, 0);
  const std::string line = std::exchange(pending, std::string());
  if (std::exchange(tooLong, false)) return true;
  return !Test(start, line.data(), static_cast<long long>(line.size())) || scanAll;
}

// True, with all that is told of a match, when a filter matches the line.
bool TLogScan::Test(long long start, const char* line, long long n) {
  int match = 0;
  size_t which = 0;
  for (; which < filters.size() && match == 0; ++which) match = filters[which].Search(line, static_cast<int>(n));
  if (match == 0) return false;
  result = start + match;
  status = which == 1;
  matchLine.CopyData(line, static_cast<int>(n));
  return true;
}

// Lines that all end in [from, end).
bool TLogScan::TakeWholeLines(const char* from, const char* end) {
  if (from == end) return true;
  ForgetHits();
  if (everyLine || !clues.empty()) {
    if (scanAll)
      FindLastMatch(from, end);
    else if (FindFirstMatch(from, end))
      return false;
  }
  CountTo(from, end);
  return true;
}

bool TLogScan::FindFirstMatch(const char* from, const char* end) {
  for (TLine line = NextLine(from, end); line.begin != nullptr; line = NextLine(line.end + 1, end)) {
    if (line.begin == line.end || !Test(StartOf(line.begin, from), line.begin, line.end - line.begin)) continue;
    CountTo(from, line.end + 1);
    return true;
  }
  return false;
}

void TLogScan::FindLastMatch(const char* from, const char* end) {
  for (TLine line = LineBefore(from, end); line.begin != nullptr; line = LineBefore(from, line.begin)) {
    if (line.begin == line.end) continue;
    if (Test(StartOf(line.begin, from), line.begin, line.end - line.begin)) return;
  }
}

// The first line in [from, end) that may match; both are where lines begin.
TLogScan::TLine TLogScan::NextLine(const char* from, const char* end) {
  const char* hit = nullptr;
  for (TClue& clue : clues) {
    if (everyLine) break;
    if (!clue.looked || (clue.hit != nullptr && clue.hit < from)) clue.hit = clue.finder.First(from, end);
    clue.looked = true;
    everyLine = clue.finder.GaveUp();
    if (clue.hit != nullptr && (hit == nullptr || clue.hit < hit)) hit = clue.hit;
  }
  if (everyLine) hit = from < end ? from : nullptr;
  if (hit == nullptr) return {nullptr, nullptr};
  return {BehindLastLineEnd(from, hit), FirstLineEnd(hit, end)};
}

// The last such line.
TLogScan::TLine TLogScan::LineBefore(const char* from, const char* end) {
  const char* hit = nullptr;
  for (TClue& clue : clues) {
    if (everyLine) break;
    const auto isBehind = [&] { return end - clue.hit < static_cast<long long>(clue.finder.Length()); };
    if (!clue.looked || (clue.hit != nullptr && isBehind())) clue.hit = clue.finder.Last(from, end);
    clue.looked = true;
    everyLine = clue.finder.GaveUp();
    if (clue.hit != nullptr && (hit == nullptr || clue.hit > hit)) hit = clue.hit;
  }
  if (everyLine) hit = from < end ? end - 1 : nullptr;
  if (hit == nullptr) return {nullptr, nullptr};
  return {BehindLastLineEnd(from, hit), FirstLineEnd(hit, end)};
}

void TLogScan::ForgetHits() {
  for (TClue& clue : clues) clue.looked = false;
}

// The offset behind the line before, empty ones left out.
long long TLogScan::StartOf(const char* line, const char* from) const {
  while (line > from && IsLineEnd(line[-1])) --line;
  if (line == from) return position;
  return position + counted + (line - from) + 1;
}

// Moves the position on over the lines of [from, end).
void TLogScan::CountTo(const char* from, const char* end) {
  const long long begin = position + counted;
  position = StartOf(end, from);
  counted = begin + (end - from) - position;
}
