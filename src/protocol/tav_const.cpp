#include "protocol/tav_const.h"

#include <stdlib.h>
#include <string.h>

#include "core/assertion.h"
#include "core/memsearch.h"
#include "protocol/bytes.h"
#include "protocol/md5.h"

namespace {

// The number that the n digits at s write; what is not a digit counts by its distance from '0'.
int DigitsAt(const char* s, int n) {
  int value = 0;
  for (int i = 0; i < n; i++) value = 10 * value + (s[i] - '0');
  return value;
}

// Appends what stands between two line breaks or escapes; n is 0 there as often as not.
void AddRun(String& out, const char* s, int n) {
  if (n > 0) out.AddData(s, n);
}

}  // namespace

int tavDecodeBool(const char* s) {
  return s != nullptr && strcmp(s, "1") == 0;
}

int tavDecodeBool(const String& s) {
  return tavDecodeBool(s.CStr());
}

// Beyond 32 bits the lower half stays, beyond 64 the nearest limit: what glibc's atoi makes of it, where the
// standard leaves it open.
int tavDecodeInt(const char* s) {
  return static_cast<int>(tavDecodeInt64(s));
}

int tavDecodeInt(const String& s) {
  return tavDecodeInt(s.CStr());
}

int tavDecodeInt(const char* s, int* out) {
  if (s == nullptr || !isdecimalnum(s)) return 0;
  *out = tavDecodeInt(s);
  return 1;
}

int tavDecodeInt(const String& s, int* out) {
  return tavDecodeInt(s.CStr(), out);
}

long long tavDecodeInt64(const char* s) {
  return s == nullptr ? 0 : strtoll(s, nullptr, 10);
}

long long tavDecodeInt64(const String& s) {
  return tavDecodeInt64(s.CStr());
}

int tavDecodeInt64(const char* s, long long* out) {
  if (s == nullptr || !isdecimalnum(s)) return 0;
  *out = tavDecodeInt64(s);
  return 1;
}

int tavDecodeInt64(const String& s, long long* out) {
  return tavDecodeInt64(s.CStr(), out);
}

double tavDecodeReal(const char* s) {
  return s == nullptr ? 0 : strtod(s, nullptr);
}

double tavDecodeReal(const String& s) {
  return tavDecodeReal(s.CStr());
}

tm tavDecodeTime(const char* s) {
  tm time = {};
  if (s == nullptr || strlen(s) != 14) return time;
  time.tm_mday = DigitsAt(s, 2);
  time.tm_mon = DigitsAt(s + 2, 2);
  time.tm_year = DigitsAt(s + 4, 4);
  time.tm_hour = DigitsAt(s + 8, 2);
  time.tm_min = DigitsAt(s + 10, 2);
  time.tm_sec = DigitsAt(s + 12, 2);
  return time;
}

tm tavDecodeTime(const String& s) {
  return tavDecodeTime(s.CStr());
}

String tavEncodeStrings(const char* s, int n) {
  String out;
  if (s == nullptr) return out;
  const int size = n == 0 ? static_cast<int>(strlen(s)) : n;
  int done = 0;
  for (int i = 0; i < size; i++) {
    if (s[i] != '\n' && s[i] != '\r') continue;
    AddRun(out, s + done, i - done);
    out.AddData(s[i] == '\n' ? "%0A" : "%0D", 3);
    done = i + 1;
  }
  AddRun(out, s + done, size - done);
  return out;
}

String tavEncodeStrings(const String& s) {
  return s.Length() == 0 ? String() : tavEncodeStrings(s.Data(), s.Length());
}

String tavDecodeStrings(const char* s, int n) {
  String out;
  if (s == nullptr) return out;
  const int size = n == 0 ? static_cast<int>(strlen(s)) : n;
  int done = 0;
  for (int i = 0; i + 2 < size; i++) {
    if (s[i] != '%' || s[i + 1] != '0' || (s[i + 2] != 'A' && s[i + 2] != 'D')) continue;
    AddRun(out, s + done, i - done);
    out.AddChar(s[i + 2] == 'A' ? '\n' : '\r');
    done = i + 3;
    i += 2;
  }
  AddRun(out, s + done, size - done);
  return out;
}

String tavDecodeStrings(const String& s) {
  return s.Length() == 0 ? String() : tavDecodeStrings(s.Data(), s.Length());
}

String EncodeLength(const String& s, int digits) {
  const uint32_t len = static_cast<uint32_t>(s.Length());
  if (static_cast<size_t>(digits) > sizeof(len)) {
    AssertionFailure("digits<=sizeof(len)", "tav_const", 140, "String EncodeLength(const String&, int)");
  }
  unsigned char bytes[sizeof len];
  StoreLittle32(len, bytes);
  return String(reinterpret_cast<const char*>(bytes), digits);
}

int DecodeLength(const char* p, int digits) {
  if (static_cast<size_t>(digits) > sizeof(int)) {
    AssertionFailure("digits<=sizeof(int)", "tav_const", 155, "int DecodeLength(const char*, int)");
  }
  const auto byte = [p](int i) { return static_cast<int>(static_cast<unsigned char>(p[i])); };
  switch (digits) {
    case 1:
      return byte(0);
    case 2:
      return byte(0) | byte(1) << 8;
    case 4:
      return static_cast<int>(LoadLittle32(p));
    default:
      return 0;
  }
}

String EncodePswd(const String& password) {
  if (password.Length() == 0) return String();
  MD5Context ctx;
  unsigned char digest[kProofSize];
  MD5Open(&ctx);
  MD5Digest(&ctx, password.Data(), static_cast<unsigned>(password.Length()));
  MD5Close(&ctx, digest);
  String proof(reinterpret_cast<const char*>(digest), kProofSize);
  explicit_bzero(digest, sizeof digest);
  return proof;
}

String EncodeData(const String& data, const String& key, int digits) {
  return data.Length() == 0 ? String() : EncodeData(data, TCipherKey(key), digits);
}

String EncodeData(const String& data, const TCipherKey& key, int digits) {
  if (data.Length() == 0) return String();
  String out = EncodeLength(data, digits);  // the ciphertext is as long as the text
  out.SetLength(digits + data.Length());
  key.Encrypt(data.Data(), out.Data() + digits, data.Length());
  return out;
}

String DecodeData(const String& data, const String& key) {
  return data.Length() == 0 ? String() : DecodeData(data, TCipherKey(key));
}

String DecodeData(const String& data, const TCipherKey& key) {
  String out;
  if (data.Length() == 0) return out;
  out.SetLength(data.Length());
  key.Decrypt(data.Data(), out.Data(), data.Length());
  return out;
}
