// What the network operations return, and the texts beside it.
//
// Every operation that can fail returns one of these codes, or a count of bytes where it moves data, and sets the
// error text it was given.  The codes travel in replies.
#pragma once

#include "core/zostring.h"

inline constexpr int kNetDone = 1;
inline constexpr int kNetTimeout = 0;       // "Timeout"; also the count 0 of a peer that closed, with an empty text
inline constexpr int kNetNoHost = -2;       // the host name could not be resolved
inline constexpr int kNetNoSocket = -3;     // no socket, or it could not be made non-blocking
inline constexpr int kNetNotSent = -4;      // sending failed
inline constexpr int kNetNotReceived = -5;  // receiving failed
inline constexpr int kNetNotConnected = -6;  // connecting failed

inline constexpr const char* kTimeoutText = "Timeout";

// The library's table of short texts, kept for those who know it; the agent itself reads none of them.
inline constexpr const char* ipErrMsg[8] = {"Winsock error",        "Connection error",
                                            "Cannot read data",     "Cannot send data",
                                            "Cannot create socket", "Cannot resolve host name to IP address",
                                            "Cannot init WinSock",  "Timeout"};

// The text that goes with a system error number: always empty.  The servers know a system error by its code and
// have never been sent a text beside it, so nothing of the system's wording may appear there.
inline String GetErrorStr(int /*errorNumber*/) {
  return String();
}
