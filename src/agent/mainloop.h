// The accept loop, and all that other threads and handlers ask of the main thread.
#pragma once

#include <optional>

#include "agent/configloads.h"
#include "agent/pidfile.h"
#include "agent/portmove.h"
#include "agent/reception.h"
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
  TEnding ServeOnce();
  void Reload();
  void HandOver();
  void Replace(const char* path);
  TEnding FallBack(int unusable);
  void WatchListener(bool watched);
  void CloseListener();
  TEnding AcceptAll();
  bool Relieve(int error, bool mayMakeRoom);
  void Admit(TFd socket, in_addr peer);
  void Complain(int error);
  void OncePerSecond();
  int WaitMs();

  TFd epoll;
  TFd wake;
  TFd listener;
  TPidFile& pidFile;
  char** argv;
  char** envp;
  int currentPort;
  int startError = 0;  // 0: the wake descriptor is watched
  TConfigLoads configLoads;
  TPortMove portMove;
  TReception reception;
  long long acceptAgainMs = 0;   // 0: the listener is watched
  long long lastComplaintS = 0;  // when the log last told of a lack of descriptors
  long long nextTickMs = 0;
};
