// The building blocks of every exchange: a deadline, a wait, opening a socket, sending, receiving once.
//
// A descriptor belongs to one thread at a time.  All calls start again after a signal, with the time that is left;
// none raises SIGPIPE; descriptors of any number will do.
#pragma once

#include "core/closers.h"
#include "core/zostring.h"
#include "net/netresults.h"

// A point on the monotonic clock, so many milliseconds from its making.  A negative time is no deadline at all:
// every wait for it fails at once.
class TDeadline {
 public:
  explicit TDeadline(long long timeoutMs);

  bool IsValid() const { return endUs >= 0; }
  // Milliseconds for poll, rounded up; 0 when the time has come.
  int LeftMs() const;

 private:
  long long endUs;
};

// Waits for one of poll's `events`.  1: something is ready, an error to be fetched included; 0: the time has come;
// -1: the descriptor or the deadline is no good.
int WaitReady(int fd, short events, const TDeadline& deadline);

// A close-on-exec IPv4 socket of the type SOCK_STREAM or SOCK_DGRAM; never descriptor 0, which callers take for a
// failure.
TFd OpenSocket(int type);

// Sends all of the bytes.  A socket that takes only some of them is waited for, `timeoutMs` in all; a blocking one
// takes its own time.  Returns how many went out, or -1 with errno when none did.
int SendWithin(int fd, const char* data, int length, long long timeoutMs);

// Receives once, at most `size` bytes.  Returns the count (0: an empty datagram, or the peer has closed),
// kNetTimeout with its text or kNetNotReceived.  Leaves `error` alone when it succeeds.
int ReceiveOnce(int fd, char* buffer, int size, long long timeoutMs, String& error);
