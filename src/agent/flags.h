// What sessions and signal handlers ask of the main thread, and the words they ask with.
#pragma once

#include <atomic>

#include "core/clock.h"

// The words a session raises are its own until its reply is on the way; then it adds them to the global object and
// the main thread acts on them.  So the answer to "QUIT" is not lost with the process that sent it.
class TTAVFlags {
 public:
  TTAVFlags();

  std::atomic<int> terminate{0};
  std::atomic<int> reload{0};
  std::atomic<int> upgrade{0};
  const long long startTime;  // seconds of CLOCK_MONOTONIC: a clock step must not change the agent's age

  // Adds the words that `raised` holds and wakes the main thread.
  void Raise(const TTAVFlags& raised);
};
extern TTAVFlags TAVFlags;

// Makes the main thread look at the words at once.  Safe in a signal handler; does nothing before SetWakeFd.
void WakeMainLoop();
// The eventfd that the main thread waits on; set once, before the first session and handler.
void SetWakeFd(int fd);

// Removes the temporary files of the requests under way but these two (null: none), just before the process ends or
// is replaced.  Should it go on in spite of that, those requests can't be answered rightly any more.  Safe in a
// signal handler.
void GiveUpRequests(const char* spare1, const char* spare2);
// How often that was done: a request that has seen another figure at its beginning must not be answered.
int TimesGivenUp();
