// The text log test: new lines of a growing file that match a filter.
//
// Nothing is kept between two checks.  The server holds the state of a watched file, sends it with each request and
// gets the new one back.  A handler works on its own copy; any number of threads may read one log at once.
#pragma once

#include "core/zostring.h"
#include "protocol/bvrequest.h"
#include "protocol/tavreply.h"

struct TTextLogFilter {
  String expression;
  int isExpression = 0;  // 1: a search expression, else a plain text
  int caseSensitive = 0;
  int wholeWord = 0;
};

// Lines longer than this are passed over: their bytes are counted, they are never reported.
inline constexpr int kLongestLine = 16 * 1024 * 1024;

// Reads a filter from four parameters, the first of them number `first`.
void DecodeFilter(const BVRequest& request, TTextLogFilter& filter, int first);

// Reads on from `position` and tests every line that was completed since, with the second filter where the first
// does not match and `usefilter2` is set; stops behind the first match unless `scanall` is set.
//
// In and out: `position`, where the next check begins; `knownsize` and `knownage`, the file as it was when it was
// last read to its end (a known size of 0 begins a watch: nothing is read, the position is the last byte).  Out:
// `filesize`; after a match `status` (1 first filter, 0 second; else left alone) and the last matching `matchline`.
// Returns the 1-based offset in the file of the last match, 0 when no line matched, -1 with `error` and errno set.
// Blocks on the file; a file that does not open is tried three times, a second apart.
long long CheckFileForExpression2(const char* path, long long& position, long long& knownsize, long long& knownage,
                                  const TTextLogFilter& filter1, const TTextLogFilter& filter2, int usefilter2,
                                  int scanall, int& status, String& matchline, String& error, long long& filesize);

void ProcessTest_TextLog2(const BVRequest& request, TAVReply& reply);
