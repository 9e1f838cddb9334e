// A reply: the result line, one line a parameter; then the finished, encrypted packet.
//
// Built by one session.
#pragma once

#include <time.h>

#include "core/zostring.h"
#include "protocol/bvrequest.h"

class TAVReply {
 public:
  TAVReply() = default;

  TAVReply& operator=(const String& newText);
  TAVReply& operator=(const char* newText);

  const String& Text() const { return text; }
  int Length() const { return text.Length(); }

  // Text and a line feed; a null text gives an empty reply.
  void InitPacket(const char* newText, const String& key);
  void InitPacket(const char* newText, const BVRequest& request);  // with the request's prepared key
  // Replaces everything by the code's line and returns the text, for a message to be put behind it.
  String& SetResult(const char* code);

  // Each ends with a line feed and starts on a line of its own.
  void AddStringParam(const String& value, int encode);  // encode: line breaks as "%0A" and "%0D"
  void AddStringParam(const char* value, int encode);
  void AddBoolParam(int value);
  void AddIntParam(int value);        // "%d"
  void AddIntParam(long long value);  // "%6lld"
  void AddRealParam(double value);    // "%6.4f"
  void AddTimeParam(const time_t& value);
  void AddTimeParam(const tm& value);  // ddmmyyyyhhmmss
  // At most 2047 characters; one longer than 2048 is left out whole.
  void AddVarParams(const char* format, ...) __attribute__((format(printf, 2, 3)));
  // Appends another reply's lines as they stand.
  void AddLines(const TAVReply& other);

  // Closes the text with a carriage return and encrypts it: the packet, ready to send.
  void FinalizePacket();

 private:
  void CommandSeparatorCheck();

  String text;
  String sessionKey;
  TCipherKeyPtr cipher;  // the session key made ready, when the request had it
};
