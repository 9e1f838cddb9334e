// The result codes that open every reply.
#pragma once

#include "protocol/tavreply.h"

inline constexpr const char* kDone = "200";
inline constexpr const char* kFailed = "300";          // with a text
inline constexpr const char* kNotExamined = "301";     // the object could not be examined, or the test failed
inline constexpr const char* kUpgradeBusy = "302";     // another upgrade is in progress
inline constexpr const char* kUnavailable = "500";     // unknown or empty command, or not on this platform
inline constexpr const char* kWrongParameter = "501";  // malformed or missing parameter
inline constexpr const char* kNoLineEnd = "502";       // request without a line end
inline constexpr const char* kSwitchedOff = "600";     // the settings do not allow it

// Sets the result and puts `text` behind it as it stands.
inline void Answer(TAVReply& reply, const char* code, const char* text) {
  reply.SetResult(code) += text;
}
inline void Answer(TAVReply& reply, const char* code, const String& text) {
  reply.SetResult(code) += text;
}
