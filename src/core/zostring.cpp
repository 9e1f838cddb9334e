#include "core/zostring.h"

#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <new>
#include <utility>

#include "core/assertion.h"
#include "core/buffer.h"

namespace {

constexpr int kStep = 128;           // buffers and slots come in multiples of this
constexpr int kGeometricFrom = 512;  // from here on a growing buffer takes half as much again
constexpr int kLongest = INT_MAX - 2 * kPage;

int RoundUp(int n) {
  const int step = n < kPagesFrom ? kStep : kPage;
  return (n / step + 1) * step;
}

// What a buffer of `capacity` grows to so that n fits: steps while small, then by halves, so that a reply of a
// hundred thousand lines is not copied a hundred thousand times.
int GrownSize(int n, int capacity) {
  if (capacity < kGeometricFrom || capacity > kLongest / 2) return n;
  const int more = capacity + capacity / 2;
  return more > n ? more : n;
}

// ASCII, whatever the locale.
bool IsAlnum(char c) {
  return (c >= '0' && c <= '9') || (UpCase(c) >= 'A' && UpCase(c) <= 'Z');
}

int Find(const char* buf, int buflen, const char* pat, int patlen) {
  if (buf == nullptr || pat == nullptr || buflen <= 0 || patlen <= 0) return 0;
  const void* hit = memmem(buf, static_cast<size_t>(buflen), pat, static_cast<size_t>(patlen));
  return hit == nullptr ? 0 : static_cast<int>(static_cast<const char*>(hit) - buf) + 1;
}

}  // namespace

// --- buffers ---

void String::prAllocMem(int n) {
  if (n == 0) {
    FreeBuffer(data, capacity);
    data = nullptr;
    length = capacity = fixed = 0;
    return;
  }
  if (n < 0 || n > kLongest) throw std::bad_alloc();
  const int size = fixed ? n : RoundUp(n);
  if (size == capacity) return;
  char* buffer = ResizeBuffer(data, capacity, size);
  if (buffer == nullptr) throw std::bad_alloc();
  data = buffer;
  capacity = size;
}

void String::Grow(int n) {
  if (n > capacity) prAllocMem(GrownSize(n, capacity));
}

void String::Reserve(int n) {
  if (!fixed && n > capacity) prAllocMem(n);
}

String::String(int size) {
  if (size <= 0) return;
  fixed = 1;
  prAllocMem(size);
}

String::String(const char* s) {
  CopyData(s, -1);
}
String::String(const char* bytes, int n) {
  CopyData(bytes, n);
}
String::String(const String& other) {
  CopyData(other.data, other.length);
}

String::String(String&& other) noexcept
    : length(std::exchange(other.length, 0)),
      capacity(std::exchange(other.capacity, 0)),
      data(std::exchange(other.data, nullptr)),
      fixed(std::exchange(other.fixed, 0)) {}

String::~String() {
  FreeBuffer(data, capacity);
}

String& String::operator=(const char* s) {
  CopyData(s, -1);
  return *this;
}

String& String::operator=(const String& other) {
  CopyData(other.data, other.length);
  return *this;
}

String& String::operator=(String&& other) noexcept {
  if (this == &other) return *this;
  if (fixed) {  // a fixed buffer stays what it is
    CopyData(other.data, other.length);
    return *this;
  }
  std::swap(length, other.length);
  std::swap(capacity, other.capacity);
  std::swap(data, other.data);
  std::swap(fixed, other.fixed);
  return *this;
}

int String::CopyData(const char* src, int n) {
  if (src != nullptr && data != nullptr && src >= data && src < data + capacity) return length;
  if (src != nullptr && n == -1) n = static_cast<int>(strlen(src));
  if (src == nullptr || n <= 0) {
    prAllocMem(0);
    return 0;
  }
  if (fixed && n > capacity) n = capacity;
  if (n > capacity) prAllocMem(n);
  memcpy(data, src, static_cast<size_t>(n));
  length = n;
  return length;
}

void String::AddData(const char* src, int n) {
  if (src == nullptr) return;
  if (n == -1) n = static_cast<int>(strlen(src));
  if (fixed && n > capacity - length) n = capacity - length;
  if (n <= 0) return;
  if (n > kLongest - length) throw std::bad_alloc();

  const bool own = data != nullptr && src >= data && src < data + capacity;
  const long offset = own ? src - data : 0;
  Grow(length + n);
  memmove(data + length, own ? data + offset : src, static_cast<size_t>(n));
  length += n;
}

void String::AddChar(char c) {
  if (fixed && length >= capacity) return;
  Grow(length + 1);
  data[length++] = c;
}

void String::SetZero() {
  if (length == capacity) prAllocMem(capacity + kStep);
  memset(data + length, 0, static_cast<size_t>(capacity - length));
}

const char* String::CStr() {
  SetZero();
  return data;
}

void String::SetLength(int n) {
  if (n <= 0) return prAllocMem(0);
  prAllocMem(n);
  if (n > length) memset(data + length, 0, static_cast<size_t>(n - length));
  length = n;
}

// --- joining and comparing ---

String String::operator+(const String& other) const {
  String sum;
  sum.Reserve(length > kLongest - other.length ? kLongest : length + other.length);
  sum.AddData(data, length);
  sum.AddData(other.data, other.length);
  return sum;
}

String String::operator+(const char* s) const {
  String sum(*this);
  sum.AddData(s, -1);
  return sum;
}

String String::operator+(char c) const {
  String sum(*this);
  sum.AddChar(c);
  return sum;
}

String& String::operator+=(const String& other) {
  AddData(other.data, other.length);
  return *this;
}

String& String::operator+=(const char* s) {
  AddData(s, -1);
  return *this;
}

String& String::operator+=(char c) {
  AddChar(c);
  return *this;
}

bool String::operator==(const String& other) const {
  return length == other.length && (length == 0 || memcmp(data, other.data, static_cast<size_t>(length)) == 0);
}

bool String::operator==(const char* s) const {
  if (s == nullptr) return length == 0;
  const size_t n = strlen(s);
  return n == static_cast<size_t>(length) && (n == 0 || memcmp(data, s, n) == 0);
}

// --- changing in place ---

void String::LowerCase() {
  strlower(data, length);
}

void String::Delete(int index, int count) {
  if (count < 1 || index < 1 || index > length) return;
  const int rest = length - index + 1;
  if (count > rest) count = rest;
  memmove(data + index - 1, data + index - 1 + count, static_cast<size_t>(rest - count));
  length -= count;
}

String& String::Trim() {
  const auto blank = [](char c) { return static_cast<signed char>(c) <= 32; };
  int end = length;
  while (end > 0 && blank(data[end - 1])) --end;
  int begin = 0;
  while (begin < end && blank(data[begin])) ++begin;
  if (begin > 0) memmove(data, data + begin, static_cast<size_t>(end - begin));
  length = end - begin;
  return *this;
}

String& String::RemoveRepeats(char c) {
  int kept = 0;
  for (int i = 0; i < length; ++i) {
    if (data[i] == c && kept > 0 && data[kept - 1] == c) continue;
    data[kept++] = data[i];
  }
  length = kept;
  return *this;
}

// --- searching and cutting ---

int String::Pos(char c) const {
  return Find(data, length, &c, 1);
}

int String::Pos(const char* s, int n) const {
  if (s == nullptr) return 0;
  return Find(data, length, s, n == -1 ? static_cast<int>(strlen(s)) : n);
}

int String::Pos(const String& s) const {
  return Find(data, length, s.data, s.length);
}

int String::Search(String pattern, int caseSensitive, int wholeWord) const {
  String lowered;
  if (!caseSensitive) {
    pattern.LowerCase();
    lowered = *this;
    lowered.LowerCase();
  }
  const char* text = caseSensitive ? data : lowered.data;

  for (int from = 0; from < length;) {
    const int hit = Find(text + from, length - from, pattern.data, pattern.length);
    if (hit == 0) return 0;
    const int begin = from + hit - 1, end = begin + pattern.length;
    const bool inWord = (begin > 0 && IsAlnum(text[begin - 1])) || (end < length && IsAlnum(text[end]));
    if (!wholeWord || !inWord) return begin + 1;
    from = begin + 1;
  }
  return 0;
}

String String::Copy(int index, int count) const {
  String part;
  if (index < 1 || index > length) return part;
  const int rest = length - index + 1;
  part.CopyData(data + index - 1, count < rest ? (count < 1 ? 0 : count) : rest);
  return part;
}

char* String::StrCpy(char* buf, int size) const {
  if (buf == nullptr || size == 0 || length == 0) return buf;
  const int n = (size < 0 || size > length) ? length : size - 1;
  memcpy(buf, data, static_cast<size_t>(n));
  buf[n] = '\0';
  return buf;
}

String String::GetWord(int n, char delimiter) const {
  int begin = 0;
  for (int field = 1; field < n; ++field) {
    const int hit = Find(data + begin, length - begin, &delimiter, 1);
    if (hit == 0) return String();
    begin += hit;
  }
  const int hit = Find(data + begin, length - begin, &delimiter, 1);
  return Copy(begin + 1, hit == 0 ? length - begin : hit - 1);
}

String String::ReplaceAll(const char* from, const char* to, int caseSensitive) const {
  const int fromLength = from == nullptr ? 0 : static_cast<int>(strlen(from));
  String pattern(from), lowered, result;
  if (!caseSensitive) {
    pattern.LowerCase();
    lowered = *this;
    lowered.LowerCase();
  }
  const char* text = caseSensitive ? data : lowered.data;

  int done = 0;
  while (length - done > fromLength) {
    const int hit = Find(text + done, length - done, pattern.data, fromLength);
    if (hit == 0) break;
    result.AddData(data + done, hit - 1);
    result.AddData(to, -1);
    done += hit - 1 + fromLength;
  }
  result.AddData(data + done, length - done);
  return result;
}

// --- lists ---

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
  if (n < 0 || n > kLongest) throw std::bad_alloc();
  const size_t slots = static_cast<size_t>(RoundUp(GrownSize(n, capacity)));
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

// --- free functions ---

char UpCase(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}
char LoCase(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

char* strupper(char* s, int n) {
  for (int i = 0; i < n; ++i) s[i] = UpCase(s[i]);
  return s;
}

char* strlower(char* s, int n) {
  for (int i = 0; i < n; ++i) s[i] = LoCase(s[i]);
  return s;
}

char* strupper(char* s) {
  return strupper(s, static_cast<int>(strlen(s)));
}
char* strlower(char* s) {
  return strlower(s, static_cast<int>(strlen(s)));
}

bool isdecimalnum(const char* s) {
  for (; *s != '\0'; ++s) {
    if ((*s < '0' || *s > '9') && *s != '-') return false;
  }
  return true;
}

bool isdecimalnum(const char* s, int n) {
  for (int i = 0; i < n; ++i) {
    if (s[i] < '0' || s[i] > '9') return false;
  }
  return true;
}

int mempos(const char* buf, int buflen, const char* pat, int patlen) {
  return Find(buf, buflen, pat, patlen);
}

int memposi(const char* buf, int buflen, const char* pat, int patlen) {
  if (buf == nullptr || pat == nullptr || buflen <= 0 || patlen <= 0) return 0;
  for (int start = 0; start <= buflen - patlen; ++start) {
    int same = 0;
    while (same < patlen && LoCase(buf[start + same]) == LoCase(pat[same])) ++same;
    if (same == patlen) return start + 1;
  }
  return 0;
}
