// Text forms of values, the layout of packets, and the codecs of both.
//
// A request packet is drawn in packethead.h; a reply packet is L:4 and L encrypted bytes.  Lengths are unsigned and
// little-endian, whatever the platform.  The offsets below count from 1.
//
// All functions work on their arguments alone and may run on many threads at once.
#pragma once

#include <time.h>

#include "core/zostring.h"
#include "protocol/cipher.h"

inline constexpr int OFFSET_PACKET = 1;
inline constexpr int SIZELEN_PACKET = 4;
inline constexpr int SIZELEN_AUTH = 2;
inline constexpr int SIZELEN_PSWD = 2;
inline constexpr int SIZELEN_KEY = 2;
inline constexpr int SIZELEN_REQUEST = 4;
inline constexpr int OFFSET_AUTH = OFFSET_PACKET + SIZELEN_PACKET;
inline constexpr int OFFSET_PSWD = OFFSET_AUTH + SIZELEN_AUTH;
inline constexpr int OFFSET_KEY = OFFSET_PSWD + SIZELEN_PSWD;    // plus the proof's length
inline constexpr int OFFSET_REQUEST = OFFSET_KEY + SIZELEN_KEY;  // plus the proof's and the key's lengths
inline constexpr int SIZELEN_MINIMUM = SIZELEN_PSWD + 4 + SIZELEN_KEY + SIZELEN_REQUEST + SIZELEN_AUTH;

inline constexpr char kSignature[2] = {3, 18};
inline constexpr int kProofSize = 16;

inline constexpr const char* BoolConst[2] = {"0", "1"};

// --- values as text ---
int tavDecodeBool(const char* s);  // 1 only for the exact text "1"
int tavDecodeBool(const String& s);
int tavDecodeInt(const char* s);  // atoi
int tavDecodeInt(const String& s);
// The checked forms take digits and '-' in any order and number, the empty text too (0); else 0 and *out stays.
int tavDecodeInt(const char* s, int* out);
int tavDecodeInt(const String& s, int* out);
long long tavDecodeInt64(const char* s);  // atoll
long long tavDecodeInt64(const String& s);
int tavDecodeInt64(const char* s, long long* out);
int tavDecodeInt64(const String& s, long long* out);
double tavDecodeReal(const char* s);  // atof
double tavDecodeReal(const String& s);
// 14 digits, ddmmyyyyhhmmss.  Month and year are stored as written (1-12, four digits), not as `tm` counts them:
// the servers' side expects exactly that.  Another length gives all zeros.
tm tavDecodeTime(const char* s);
tm tavDecodeTime(const String& s);
// Line feed as "%0A", carriage return as "%0D", the rest as it stands; n = 0 means strlen.
String tavEncodeStrings(const char* s, int n);
String tavEncodeStrings(const String& s);
String tavDecodeStrings(const char* s, int n);
String tavDecodeStrings(const String& s);

// --- packet fields ---
// The length of s in `digits` bytes (at most 4), least significant first.
String EncodeLength(const String& s, int digits);
// Reads 1, 2 or 4 bytes; widths 0 and 3 give 0.
int DecodeLength(const char* p, int digits);
// The 16 bytes of the password's MD5 digest; empty for an empty password.
String EncodePswd(const String& password);
// Encrypts under the key text; with digits > 0 the length stands in front.  Empty data gives an empty result.
String EncodeData(const String& data, const String& key, int digits);
String EncodeData(const String& data, const TCipherKey& key, int digits);
String DecodeData(const String& data, const String& key);
String DecodeData(const String& data, const TCipherKey& key);
