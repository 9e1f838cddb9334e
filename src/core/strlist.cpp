#include "core/strlist.h"

#include <stdlib.h>
#include <string.h>

#include <new>
#include <utility>

#include "core/assertion.h"
#include "core/buffer.h"

TStrList::TStrList(const TStrList& other) {
  for (int i = 0; i < other.count; ++i) Add(other[i]);
}

TStrList::TStrList(TStrList&& other) noexcept
    : count(std::exchange(other.count, 0)),
      capacity(std::exchange(other.capacity, 0)),
      lengths(std::exchange(other.lengths, nullptr)),
      items(std::exchange(other.items, nullptr)) {}

TStrList& TStrList::operator=(TStrList other) noexcept {
  std::swap(count, other.count);
  std::swap(capacity, other.capacity);
  std::swap(lengths, other.lengths);
  std::swap(items, other.items);
  return *this;
}

TStrList::~TStrList() {
  Clear();
}

void TStrList::prAllocMem(int n) {
  if (n == 0) return Clear();
  if (capacity >= n) return;
  if (n < 0 || n > kLongestBuffer) throw std::bad_alloc();
  const size_t slots = static_cast<size_t>(CapacityFor(GrownSize(n, capacity)));
  void* newLengths = realloc(lengths, slots * sizeof *lengths);
  if (newLengths == nullptr) throw std::bad_alloc();
  lengths = static_cast<int*>(newLengths);
  void* newItems = realloc(items, slots * sizeof *items);
  if (newItems == nullptr) throw std::bad_alloc();
  items = static_cast<char**>(newItems);
  capacity = static_cast<int>(slots);
}

void TStrList::Add(const String& s) {
  prAllocMem(count + 1);
  char* copy = nullptr;
  if (s.Length() > 0) {
    copy = static_cast<char*>(malloc(static_cast<size_t>(s.Length())));
    if (copy == nullptr) throw std::bad_alloc();
    memcpy(copy, s.Data(), static_cast<size_t>(s.Length()));
  }
  lengths[count] = s.Length();
  items[count] = copy;
  ++count;
}

void TStrList::Delete(int i) {
  if (i < 0 || i >= count) AssertionFailure("0", "zostring", 471, "void TStrList::Delete(int)");
  free(items[i]);
  const size_t behind = static_cast<size_t>(count - i - 1);
  memmove(items + i, items + i + 1, behind * sizeof *items);
  memmove(lengths + i, lengths + i + 1, behind * sizeof *lengths);
  --count;
}

void TStrList::Clear() {
  for (int i = 0; i < count; ++i) free(items[i]);
  free(items);
  free(lengths);
  items = nullptr;
  lengths = nullptr;
  count = capacity = 0;
}

String TStrList::operator[](int i) const {
  if (i < 0 || i >= count) AssertionFailure("0", "zostring", 495, "String TStrList::operator[](int)");
  return String(items[i], lengths[i]);
}
