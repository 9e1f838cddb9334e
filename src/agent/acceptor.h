// The listener: takes connections, passes them through the address filter to the reception, and gives those already
// here a chance when descriptors or memory run out.
#pragma once

#include <netinet/in.h>

#include <atomic>

#include "agent/reception.h"
#include "core/closers.h"
#include "core/mutex.h"

// Any thread may accept; all else is the main thread's.
class TAcceptor {
 public:
  // The listener is watched by the epoll instance, an event at a time, with TReception::kNoConnection as data.
  TAcceptor(int epollDescriptor, TReception& whoReceives) : epoll(epollDescriptor), reception(whoReceives) {}

  void Open(TFd fresh);
  void Close();
  // The same where the lock may be held for ever, after a fault: then the listener stays until the process goes.
  void CloseIfFree();
  bool IsOpen();

  // One connection, which the next event may be about again; true when it came with a whole packet, see
  // TReception::Admit.  Throws when memory is short: that costs the connection.
  bool Accept(TConnection& whole);
  // Watches the listener again once it has had its rest.  Milliseconds until then; -1 when it is watched or closed.
  int Resume();
  // Why nothing can be accepted any more; 0 while that is not so.  WakeMainLoop() tells.
  int FatalError() const { return fatalError; }

 private:
  TFd TakeOne(sockaddr_in& address, int& error);
  void Watch() REQUIRES(mutex);
  void Release() REQUIRES(mutex);
  void Relieve(int error);
  bool Admit(TFd socket, in_addr peer, TConnection& whole);
  void Complain(int error);

  const int epoll;
  TReception& reception;
  TMutex mutex;
  TFd listener GUARDED_BY(mutex);
  long long againMs GUARDED_BY(mutex) = 0;   // 0: it is watched
  std::atomic<bool> tookSome{false};         // since descriptors or memory were short
  std::atomic<long long> lastComplaintS{0};  // when the log last told of that
  std::atomic<int> fatalError{0};
};
