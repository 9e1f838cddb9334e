// The pid file: it names the running agent, and its lock keeps a second one from taking its place.
#pragma once

#include "core/closers.h"
#include "core/zostring.h"

// The pid file, locked for as long as it is open.  Empty when there is none.  One object a process, main thread.
class TPidFile {
 public:
  // Opens and locks the file and writes the process id.  Shows why when it cannot; the agent goes on without one.
  // The file of an instance that still runs is left as it is.
  void createpidfile(const String& wanted);
  // Deletes it as RemovePidFile() does, and closes it.
  void closepidfile();

 private:
  TFd file;
};

// Deletes the pid file that was made, unless its path leads to another by now or another process has the lock.
// System calls alone: safe in a signal handler.
void RemovePidFile();
