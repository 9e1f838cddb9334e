// What sessions and signal handlers ask of the main thread, and the words they ask with.
#pragma once

#include <atomic>

#include "core/clock.h"
#include "core/mutex.h"
#include "core/zostring.h"

// The words a session raises are its own until its reply is on the way; then it adds them to the global object and
// the main thread acts on them within a second.  So the answer to "QUIT" is not lost with the process that sent it.
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

// Guards the upgrade in progress and the path of the script that finishes it.
extern TMutex upgrade_mutex;
extern int upgradeInProgress GUARDED_BY(upgrade_mutex);
extern String upgradeScript GUARDED_BY(upgrade_mutex);

// Makes the main thread look at the words at once.  Safe in a signal handler; does nothing before SetWakeFd.
void WakeMainLoop();
// The eventfd that the main thread waits on; set once, before the first session and handler.
void SetWakeFd(int fd);
