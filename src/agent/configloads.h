// The loads of the configuration that a signal asks for.
#pragma once

#include <atomic>

// A load waits for the disk and for a save under way, so it runs on a thread of its own.  However often one is
// asked for, one runs and one more is due.  Main thread only.
class TConfigLoads {
 public:
  void Ask() { due = true; }
  // Whether one is still to begin.
  bool AreDue() const { return state == kFailed || (due && state != kRunning); }
  // Begins the load that is due when none is running; the main loop is woken at its end.  One that cannot be begun
  // or done for lack of a thread or of memory stays due and comes again a second later.
  void Begin();

 private:
  enum TState { kIdle, kRunning, kFailed };
  static void* LoadMain(void* state);

  bool due = false;
  long long againMs = 0;
  std::atomic<TState> state{kIdle};
};
