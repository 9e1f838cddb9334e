// What other threads and handlers ask of the main thread, which serves nobody itself (agent/workers.h).  It sleeps
// until it is asked, or something falls due: an idle agent does not wake.
#pragma once

#include <optional>

#include "agent/acceptor.h"
#include "agent/configloads.h"
#include "agent/pidfile.h"
#include "agent/portmove.h"
#include "agent/reception.h"
#include "agent/workers.h"
#include "core/closers.h"
#include "core/exitstatus.h"

class TMainLoop {
 public:
  TMainLoop(TFd listeningSocket, TPidFile& file, char** argv, char** envp);

  // 0, or the errno that says why nothing can be waited for.
  int StartError() const { return startError; }
  // Serves until the agent is told to end, or can't serve any more.  REQUIRES: no StartError().
  TExitStatus Run();

 private:
  // What a step of the loop may come to: the process is to end, and so.
  using TEnding = std::optional<TExitStatus>;
  using TStep = TEnding (TMainLoop::*)();

  TEnding Spared(TStep step);
  TEnding CheckFlags();
  TEnding CheckPort();
  TEnding CheckListener();
  TEnding Wait();
  void Reload();
  void HandOver();
  void Replace(const char* path);
  TEnding FallBack(int unusable);
  int WaitMs();

  TFd epoll;
  TFd wake;
  TPidFile& pidFile;
  char** argv;
  char** envp;
  int currentPort;
  int startError = 0;
  TConfigLoads configLoads;
  TPortMove portMove;
  TReception reception;
  TAcceptor acceptor;
  TServing serving;
  bool served = false;   // the first thread that serves has been started
  bool leftOut = false;  // a step of this turn, which is to come again
  bool moving = false;   // the listener, to another port
};
