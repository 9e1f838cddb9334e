// What the fault loop and the library that it preloads into the agent share, in one mapped file.
#pragma once

enum { kNoFault, kMemory, kDescriptors, kProcesses, kDisk, kStatus, kInterrupted, kFaultKinds };
enum { kFaultCallers = 24 };

typedef struct TFaultControl {
  int kind;                            // of the calls that are counted; kNoFault: none is, and none fails
  int left;                            // the call that takes this to 0 fails, and nothing is counted any more
  int startUp;                         // a program that starts is counted as well; else its start disarms
  int images;                          // programs that have started
  int child;                           // the process that was forked last
  char call[16];                       // the one that failed; empty: none has
  unsigned long where[kFaultCallers];  // its callers' addresses in the agent, for addr2line
} TFaultControl;
