// Finds a text in large blocks, with or without regard to letter case, at the speed of memory.
//
// One object belongs to one thread.
#pragma once

#include <stddef.h>

#include <string>

class TBlockFinder {
 public:
  // The text has at least one byte.  With `ignoreCase` it is in lower case, and ASCII letters of the block stand
  // for either case.
  TBlockFinder(std::string wanted, bool ignoreCase);

  // The first, and the last, occurrence in [from, end); null when there is none, or when GaveUp().
  const char* First(const char* from, const char* end);
  const char* Last(const char* from, const char* end);

  // True from when the comparisons have cost more than a few times the bytes searched, which takes a text and
  // blocks made for it: then this object finds nothing any more, and a search in linear time has to take over.
  bool GaveUp() const { return credit < 0; }
  size_t Length() const { return text.size(); }

 private:
  bool Is(const char* at);
  bool PairAt(const char* at) const;
  const char* FirstInGroup(const char* group, const char* last, const unsigned char* equal, size_t width);
  const char* LastInGroup(const char* group, const unsigned char* equal, size_t width);

  std::string text;
  bool fold;
  // The two bytes that are looked for, and what is set in the block's bytes before they are compared: the bit of
  // the lower case where a letter stands for both.
  struct TRare {
    size_t place;
    unsigned char byte, bit;
  } first, second;  // in the order in which they stand in the text
  long long credit;
};

// The ways of looking for the two bytes, for a test that tries each; the fastest first, the last one is there on
// every machine, and null ends the list.
struct TFinderForm {
  const char* name;
  bool (*isThere)();
  size_t group;  // places that are looked at together

  // From `at` on in steps of a group, up to `last`, or down to it: the first group in which the two bytes stand at
  // any place, with what was found there in `equal`, a byte each; or one that lies behind `last`.
  const char* (*forward)(const unsigned char bytes[4], const char* at1, const char* last, size_t gap,
                         unsigned char* equal);
  const char* (*backward)(const unsigned char bytes[4], const char* at1, const char* last, size_t gap,
                          unsigned char* equal);
};
extern const TFinderForm kFinderForms[];
// The one that is used; a test may put another in its place.
extern const TFinderForm* finderForm;
