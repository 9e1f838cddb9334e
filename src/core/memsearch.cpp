#include "core/memsearch.h"

#include <string.h>

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
  if (buf == nullptr || pat == nullptr || buflen <= 0 || patlen <= 0) return 0;
  const void* hit = memmem(buf, static_cast<size_t>(buflen), pat, static_cast<size_t>(patlen));
  return hit == nullptr ? 0 : static_cast<int>(static_cast<const char*>(hit) - buf) + 1;
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
