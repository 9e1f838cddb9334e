// Finding a text in memory and in files.
//
// Everything here works on its arguments alone; any number of threads may be in here at once.
#pragma once

#include <stddef.h>

#include "core/zostring.h"

// An ASCII letter or digit, which is what isalnum tells in the C locale.
bool IsWordByte(char c);

// Looks for one text, which it does not own, in buffers.  All occurrences of a text are found in linear time, those
// that overlap included.
class TTextFinder {
 public:
  // The text has at least one byte and outlives the finder.
  TTextFinder(const char* bytes, size_t n) : text(bytes), length(n) {}

  // The first occurrence in [from, end), or null.
  const char* First(const char* from, const char* end) const;
  // The first occurrence behind the start of the occurrence `hit`, or null.
  const char* Next(const char* hit, const char* end);
  // The first occurrence in [begin, end) whose neighbours inside these bounds are no letters or digits, or null.
  const char* FirstWord(const char* begin, const char* end);

 private:
  size_t ShortPeriod() const;

  const char* text;
  size_t length;
  size_t period = 0;  // the text's smallest period when that is at most half its length, else 0
  bool periodKnown = false;
};

// Returns the 1-based offset of the first occurrence of `text` in the file, or -1: also for an empty text, one
// longer than the file, a file that cannot be opened and a read error.  Without `casesensitive` the text is lowered
// in place.  With `wholeword` an occurrence counts only between bytes that are not alphanumeric, save at the edges
// of the search windows (see the source).  Blocks on the file; holds about twice the text's length.
long long FindStrInFile(const char* path, String& text, int casesensitive, int wholeword);

// The largest file whose contents are looked for.
inline constexpr long long kMaxPatternFile = 8388608;

// Returns the 1-based offset of the first occurrence of the whole contents of `patternfile` in `path`; 1 when
// `patternfile` is empty, whatever `path` is; or -1.  A pattern file above kMaxPatternFile gives -1.
long long FindFileInFile(const char* path, const char* patternfile);
