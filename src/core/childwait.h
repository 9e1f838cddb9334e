// Waits for children of this process, each reaped by exactly one owner: its watch, or the list of those left
// behind.
//
// Any thread.
#pragma once

#include <sys/types.h>

#include "core/closers.h"

// The end of one child.  It is seen at once: the kernel says so where it can (pidfd), else looks come in short
// steps.
class TChildWatch {
 public:
  explicit TChildWatch(pid_t child);

  // Waits up to `ms` milliseconds (-1: without limit).  True once the child has ended; it is reaped then.
  bool WaitEnd(long long ms);
  // The wait status.  REQUIRES: WaitEnd() was true.
  int Status() const { return status; }
  pid_t Child() const { return pid; }

 private:
  bool Reap();
  void Pause(long long ms);

  pid_t pid;
  TFd pidfd;
  int stepMs = 1;
  bool ended = false;
  int status = 0;
};

// Gives up a child: ReapLeftChildren() will take its end, unless it has come.
void LeaveChild(pid_t pid);
// Gives up the children that the process already has: its program's predecessor started them.  Before the first
// child of its own.
void AdoptChildren();
// Takes the ends of children left behind; never blocks.  To be called after every SIGCHLD.
void ReapLeftChildren();
