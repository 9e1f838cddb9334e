// The listening socket.
#pragma once

#include <atomic>
#include <memory>

#include "core/closers.h"
#include "core/zostring.h"

inline constexpr int kListenAttempts = 3;

// Opens the listening socket on the port in force; up to three attempts, a second apart.  The reason in `error`.
TFd Listen(String& error);

// One attempt to open another port, while the main thread goes on serving: the setting `host` may be a name, and a
// name server may be silent for long.  Main thread only.
class TPortOpening {
 public:
  // Goes on by itself and wakes the main loop in the end.  An attempt before this one is forgotten, unless memory
  // is short: then it throws and nothing has begun.
  void Begin(int port);
  bool Begun() const { return outcome != nullptr; }
  // True once it is known how it went, and only once; the socket is closed when the port can't be opened.
  bool Ended(TFd& socket);

  struct TOutcome {
    std::atomic<bool> known{false};
    TFd socket;
  };

 private:
  std::shared_ptr<TOutcome> outcome;
};
