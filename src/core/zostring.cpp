#include "core/zostring.h"

#include <string.h>

#include <new>
#include <utility>

#include "core/buffer.h"
#include "core/memsearch.h"

// --- buffers ---

void String::prAllocMem(int n) {
  if (n == 0) {
    FreeBuffer(data, capacity);
    data = nullptr;
    length = capacity = fixed = 0;
    return;
  }
  Resize(n);
}

void String::Resize(int n) {
  if (n < 0 || n > kLongestBuffer) throw std::bad_alloc();
  const int size = fixed ? n + 1 : CapacityFor(n);
  if (size == capacity && data != nullptr) return;
  char* buffer = ResizeBuffer(data, capacity, size);
  if (buffer == nullptr) throw std::bad_alloc();
  data = buffer;
  capacity = size;
}

// Makes room for n bytes and the NUL.
void String::Grow(int n) {
  if (data == nullptr || n >= capacity) Resize(GrownSize(n, capacity));
}

void String::End(int n) {
  length = n;
  data[n] = '\0';
}

// How many of n bytes a text of this object may have.
int String::Fitting(int n) const {
  return fixed && n >= capacity ? capacity - 1 : n;
}

void String::Reserve(int n) {
  if (!fixed && n >= capacity) prAllocMem(n);
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
  if (this == &other) return *this;
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
  n = Fitting(n);
  if (data == nullptr || n >= capacity) Resize(n);
  memcpy(data, src, static_cast<size_t>(n));
  End(n);
  return length;
}

void String::AddData(const char* src, int n) {
  if (src == nullptr) return;
  if (n == -1) n = static_cast<int>(strlen(src));
  if (n > kLongestBuffer - length) throw std::bad_alloc();
  n = Fitting(length + n) - length;
  if (n <= 0) return;

  const bool own = data != nullptr && src >= data && src < data + capacity;
  const long offset = own ? src - data : 0;
  Grow(length + n);
  memmove(data + length, own ? data + offset : src, static_cast<size_t>(n));
  End(length + n);
}

void String::AddChar(char c) {
  if (Fitting(length + 1) == length) return;
  Grow(length + 1);
  data[length] = c;
  End(length + 1);
}

void String::SetZero() {
  Grow(length > 0 ? length : 1);
  memset(data + length, 0, static_cast<size_t>(capacity - length));
}

void String::SetLength(int n) {
  if (n <= 0) return prAllocMem(0);
  prAllocMem(n);
  if (n > length) memset(data + length, 0, static_cast<size_t>(n - length));
  End(n);
}

// --- joining and comparing ---

String String::operator+(const String& other) const {
  String sum;
  sum.Reserve(length > kLongestBuffer - other.length ? kLongestBuffer : length + other.length);
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
  End(length - count);
}

String& String::Trim() {
  const auto blank = [](char c) { return static_cast<signed char>(c) <= 32; };
  int end = length;
  while (end > 0 && blank(data[end - 1])) --end;
  int begin = 0;
  while (begin < end && blank(data[begin])) ++begin;
  if (begin > 0) memmove(data, data + begin, static_cast<size_t>(end - begin));
  if (data != nullptr) End(end - begin);
  return *this;
}

String& String::RemoveRepeats(char c) {
  int kept = 0;
  for (int i = 0; i < length; ++i) {
    if (data[i] == c && kept > 0 && data[kept - 1] == c) continue;
    data[kept++] = data[i];
  }
  if (data != nullptr) End(kept);
  return *this;
}
