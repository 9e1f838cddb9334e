// Values and packet fields come back from their text as they went in.
//
//   input := key LF text
#include "fuzz/law.h"
#include "protocol/tav_const.h"

static void CheckStrings(const std::string& s) {
  const String encoded = tavEncodeStrings(Bytes(s)), decoded = tavDecodeStrings(Bytes(s));
  Require(encoded.Pos('\n') == 0 && encoded.Pos('\r') == 0 && tavEncodeStrings(decoded) == encoded);
  Require(tavDecodeStrings(encoded) == decoded &&
          tavDecodeStrings(s.c_str(), 0) == tavDecodeStrings(String(s.c_str())));
  Require((Std(decoded) != s) == (s.find("%0A") != std::string::npos || s.find("%0D") != std::string::npos));
}

static void CheckNumbers(const char* s) {
  const bool digits = strspn(s, "0123456789-") == strlen(s);
  int small = 77;
  long long large = 77, value = digits ? 0 : 77;
  Require(tavDecodeInt(s, &small) == digits && tavDecodeInt64(String(s), &large) == digits);
  for (const char* p = s + (*s == '-'); digits && *p >= '0' && strlen(s) < 18; p++) value = value * 10 + *p - '0';
  if (strlen(s) < 18) Require(large == (digits && *s == '-' ? -value : value) && small == int(large));
  const tm time = tavDecodeTime(s);
  const auto two = [s](int i) { return strlen(s) == 14 ? 10 * (s[i] - '0') + s[i + 1] - '0' : 0; };
  Require(time.tm_mday == two(0) && time.tm_mon == two(2) && time.tm_year == 100 * two(4) + two(6));
  Require(time.tm_hour == two(8) && time.tm_min == two(10) && time.tm_sec == two(12));
}

TAV_LAWS(codec)(std::string input) {
  Twofish_initialise();
  CheckStrings(input);
  CheckNumbers(input.c_str());
  const String keyText = Bytes(Cut(input, '\n')), text = Bytes(input), half = text.Copy(1, text.Length() / 2);
  for (const int digits : {1, 2, 4}) {
    const int shown = int(input.size() & (~0ull >> (64 - 8 * digits)));
    Require(DecodeLength(EncodeLength(text, digits).Data(), digits) == shown);
  }
  const TCipherKey key(keyText);
  const String cipher = EncodeData(text, key, 0), length = EncodeLength(text, 4);
  Require(cipher.Length() == text.Length() && DecodeData(cipher, key) == text);
  Require(EncodeData(text, keyText, 4) == (text.Length() == 0 ? text : length + cipher));
  Require(EncodeData(half, key, 0) == cipher.Copy(1, half.Length()));  // what follows never reaches back
}
