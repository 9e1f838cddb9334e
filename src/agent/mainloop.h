// The accept loop, and all that other threads and handlers ask of the main thread.
#pragma once

#include "agent/configloads.h"
#include "agent/listener.h"
#include "agent/pidfile.h"
#include "agent/reception.h"
#include "core/closers.h"
#include "core/zostring.h"

class TMainLoop {
 public:
  TMainLoop(TFd listeningSocket, TPidFile& file, char** argv, char** envp);

  // 0, or the errno that says why nothing can be waited for.
  int StartError() const { return startError; }
  // Serves until the agent is told to end.  Returns the exit status.  REQUIRES: no StartError().
  int Run();

 private:
  // A move to another port under way.  The old listener serves until the new one stands.
  struct TPortSwitch {
    int target = 0;
    int attempts = 0;
    long long nextMs = 0;
    bool failed = false;  // and told
    TPortOpening opening;
  };

  bool Spared(bool (TMainLoop::*step)(int& status), int& status);
  bool ServeOnce(int& status);
  bool CheckFlags(int& status);
  void Reload();
  void HandOver();
  void Replace(const char* path);
  bool CheckPort(int& status);
  bool FallBack(int& status);
  void WatchListener(bool watched);
  void CloseListener();
  bool AcceptAll(int& status);
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
  TPortSwitch portSwitch;
  TReception reception;
  long long acceptAgainMs = 0;   // 0: the listener is watched
  long long lastComplaintS = 0;  // when the log last told of a lack of descriptors
  long long nextTickMs = 0;
};
