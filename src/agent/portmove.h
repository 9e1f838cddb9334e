// The listener's move to another port, beside the service on the old one.
#pragma once

#include <memory>

#include "core/closers.h"
#include "core/zostring.h"

// Three attempts, a second apart.  An attempt whose host is a name runs on a thread of its own, as a name server
// may be silent for long; it wakes the main loop at its end.  One thread uses an object, the main one; nothing here
// blocks it.
class TPortMove {
 public:
  enum class TState {
    kUnderWay,
    kOpened,   // the new listener stands, the move is over
    kFailed,   // no attempt is left; said once
    kGivenUp,  // the same, said from then on
  };

  // Brings the move to `port` on `host` (empty: every interface) on its way; another port than before begins
  // another move.  `nowMs` is MonotonicMs().  With kOpened `fresh` is the listening socket.  Throws when memory is
  // short; an attempt that was not begun counts for nothing.
  TState Step(const String& host, int port, long long nowMs, TFd& fresh);
  // Ends the move.  An attempt under way comes to its end, for nobody.
  void Forget() { *this = TPortMove(); }

 private:
  struct TOutcome;
  struct TJob;
  static void Open(const TJob& job);
  static void* OpeningMain(void* argument);
  void Begin(const String& host, int port);

  int target = 0;
  int attempts = 0;  // that have failed
  long long nextMs = 0;
  bool told = false;
  std::shared_ptr<TOutcome> outcome;  // of the attempt under way
};
