// The building blocks of every exchange: a deadline, a wait, opening a socket, sending, receiving once.
//
// A descriptor belongs to one thread at a time.  All calls start again after a signal, with the time that is left;
// none raises SIGPIPE; descriptors of any number will do.  Every wait ends when the requester of the thread has
// gone (core/requester.h).
#pragma once

#include "core/closers.h"
#include "core/zostring.h"
#include "net/netresults.h"

// A point on the monotonic clock, so many milliseconds from its making.  A negative time is no deadline at all:
// every wait for it fails at once.
class TDeadline {
 public:
  explicit TDeadline(long long timeoutMs);
  static TDeadline Never();
  // Comes when nothing has gone out or in for so long, instead of so long from its making.
  static TDeadline OfSilence(long long timeoutMs);

  bool IsValid() const { return endUs >= 0; }
  // Milliseconds for poll, rounded up; 0 when the time has come.
  int LeftMs() const;
  // Something has gone out or in.
  void Progress();

 private:
  TDeadline() = default;

  long long endUs = 0;
  long long silenceUs = 0;  // 0: progress puts nothing off
};

// Waits for one of poll's `events`.  1: something is ready, an error to be fetched included; 0: the time has come;
// -1: the descriptor or the deadline is no good, or the requester has gone.  The requester's own connection is
// ready then: what he has sent before can still be read.
int WaitReady(int fd, short events, const TDeadline& deadline);

// A close-on-exec IPv4 socket of the type SOCK_STREAM or SOCK_DGRAM; never descriptor 0, which callers take for a
// failure.
TFd OpenSocket(int type);

// Sends all of the bytes; a socket that takes only some of them is waited for.  With `untilAnswer` it stops once
// there is something to read: who answers has heard enough.  Returns how many went out, with errno saying why they
// are not all (0: the time or an answer has come), or -1 with errno when none did.
int SendWithin(int fd, const char* data, int length, TDeadline deadline, bool untilAnswer);

// Receives once, at most `size` bytes.  Returns the count (0: an empty datagram, or the peer has closed), or -1
// with errno (0: the time has come, or there is no waiting).
int ReceiveWithin(int fd, char* buffer, int size, const TDeadline& deadline);

// The same in words: returns the count, kNetTimeout with its text or kNetNotReceived.  Leaves `error` alone when it
// succeeds.
int ReceiveOnce(int fd, char* buffer, int size, long long timeoutMs, String& error);
