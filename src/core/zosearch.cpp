// The part of String that searches and cuts; nothing here changes a text in place.
#include <string.h>

#include "core/memsearch.h"
#include "core/zostring.h"

namespace {

// ASCII, whatever the locale.
bool IsAlnum(char c) {
  return (c >= '0' && c <= '9') || (UpCase(c) >= 'A' && UpCase(c) <= 'Z');
}

int Find(const char* buf, int buflen, const char* pat, int patlen) {
  return mempos(buf, buflen, pat, patlen);
}

}  // namespace

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
  const char* text = caseSensitive ? CStr() : lowered.CStr();

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
  const char* text = caseSensitive ? CStr() : lowered.CStr();

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
