#include "protocol/tavreply.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "protocol/bytes.h"
#include "protocol/tav_const.h"

namespace {

constexpr int kMostFormatted = 2048;

void SetLine(String& text, const char* line) {
  text = line;
  if (line != nullptr) text.AddChar('\n');
}

}  // namespace

TAVReply& TAVReply::operator=(const String& newText) {
  text = newText;
  return *this;
}

TAVReply& TAVReply::operator=(const char* newText) {
  text = newText;
  return *this;
}

void TAVReply::InitPacket(const char* newText, const String& key) {
  SetLine(text, newText);
  sessionKey = key;
  cipher = nullptr;
}

void TAVReply::InitPacket(const char* newText, const BVRequest& request) {
  InitPacket(newText, request.GetSessionKey());
  cipher = request.SessionCipher();
}

String& TAVReply::SetResult(const char* code) {
  SetLine(text, code);
  return text;
}

void TAVReply::CommandSeparatorCheck() {
  if (text.Length() > 0 && text[text.Length()] != '\n') text.AddChar('\n');
}

void TAVReply::AddStringParam(const String& value, int encode) {
  CommandSeparatorCheck();
  if (encode) {
    text += tavEncodeStrings(value);
  } else {
    text += value;
  }
  text.AddChar('\n');
}

void TAVReply::AddStringParam(const char* value, int encode) {
  AddStringParam(String(value), encode);
}

void TAVReply::AddBoolParam(int value) {
  AddStringParam(BoolConst[value != 0], 0);
}

void TAVReply::AddIntParam(int value) {
  AddVarParams("%d", value);
}

void TAVReply::AddIntParam(long long value) {
  AddVarParams("%6lld", value);
}

void TAVReply::AddRealParam(double value) {
  AddVarParams("%6.4f", value);
}

void TAVReply::AddTimeParam(const time_t& value) {
  tm local = {};
  localtime_r(&value, &local);
  AddTimeParam(local);
}

void TAVReply::AddTimeParam(const tm& value) {
  // A file's date may lie so far off that the year fills an int: the sum wraps.
  const int year = static_cast<int>(static_cast<unsigned>(value.tm_year) + 1900);
  AddVarParams("%2.2d%2.2d%4.4d%2.2d%2.2d%2.2d", value.tm_mday, value.tm_mon + 1, year, value.tm_hour, value.tm_min,
               value.tm_sec);
}

void TAVReply::AddVarParams(const char* format, ...) {
  char buffer[kMostFormatted];
  va_list args;
  va_start(args, format);
  const int length = vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  // One that is a character too long for the buffer goes out cut by that one; the servers know no other.
  if (length >= 0 && length <= kMostFormatted) AddStringParam(buffer, 0);
}

void TAVReply::AddLines(const TAVReply& other) {
  CommandSeparatorCheck();
  text += other.text;
}

void TAVReply::FinalizePacket() {
  CommandSeparatorCheck();
  text.AddChar('\r');

  const TCipherKeyPtr key = cipher ? cipher : std::make_shared<TCipherKey>(sessionKey);
  const int length = text.Length();
  text.SetLength(SIZELEN_PACKET + length);
  char* body = text.Data() + SIZELEN_PACKET;
  memmove(body, text.Data(), static_cast<size_t>(length));
  key->Encrypt(body, body, length);
  StoreLittle32(static_cast<uint32_t>(length), text.Data());
}
