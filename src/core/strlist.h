// The agent's list of byte strings.
#pragma once

#include "core/zostring.h"

// A list of byte strings, each its own copy.  0-based; an index out of range stops the program.
class TStrList {
 public:
  TStrList() = default;
  TStrList(const TStrList& other);
  TStrList(TStrList&& other) noexcept;
  TStrList& operator=(TStrList other) noexcept;
  ~TStrList();

  void Add(const String& s);
  void Delete(int i);
  void Clear();
  String operator[](int i) const;
  int Count() const { return count; }
  void prAllocMem(int n);

 private:
  int count = 0;
  int capacity = 0;
  int* lengths = nullptr;
  char** items = nullptr;
};
