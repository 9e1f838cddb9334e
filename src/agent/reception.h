// Connections whose packet is not whole yet: the main thread receives all of them, so that a peer that is slow or
// silent, or a stranger, costs neither a thread nor more memory than a small record.
//
// A stranger's bytes are counted and dropped as soon as the head shows him up; he is told so, by the closed
// connection and the same message, where his packet ends.  What peers with a good proof have sent so far is bounded
// for all of them together.  Main thread only.
#pragma once

#include <netinet/in.h>

#include <list>
#include <memory>

#include "agent/session.h"
#include "core/closers.h"
#include "core/zostring.h"
#include "protocol/packethead.h"

class TReception {
 public:
  // Connections are watched by the given epoll instance, with the address of their TPending as data.
  explicit TReception(int epollDescriptor);

  struct TPending {
    TFd socket;
    in_addr peer = {};
    TPacketHead head;
    String packet;           // what was received, once the head has proved good
    bool hopeless = false;   // a stranger's: nothing is kept
    int counted = 0;         // bytes of `packet` that `held` counts
    long long lastData = 0;  // seconds of CLOCK_MONOTONIC
    std::list<TPending>::iterator self;
  };

  // How many may be received at once.
  int Most() const { return static_cast<int>(mostAtOnce); }
  // Begins a session on an accepted, non-blocking socket.  When as many as may are being received, the longest
  // silent one makes room.  Throws when memory is short, and nothing has begun then.
  void Admit(TFd socket, in_addr peer);
  // Receives what there is, within bounds; hands a whole packet to a session thread.  A lack of memory ends the
  // session.
  void Readable(TPending& pending);
  // Ends the sessions that have been silent for longer than the settings allow.
  void ExpireSilent();
  // Milliseconds until ExpireSilent has something to do; `most` when that is later.
  int MsUntilExpiry(int most) const;
  // Ends the sessions that have waited longest, to make room: descriptors or memory have run out.  False when there
  // is none to end.
  bool MakeRoom();
  // Frees the records of sessions that have left.  Not while events that may name them are still being worked off.
  void Sweep() { gone.clear(); }

 private:
  void Receive(TPending& pending);
  bool Take(TPending& pending, int n);
  void Judge(TPending& pending, int n);
  void Complete(TPending& pending);
  void Count(TPending& pending);
  void End(TPending& pending);
  TFd Remove(TPending& pending);

  int epoll;
  size_t mostAtOnce;  // connections received at once
  std::unique_ptr<char[]> buffer;
  std::list<TPending> waiting;  // the longest silent first
  std::list<TPending> gone;     // sessions that have left, until the next sweep
  long long held = 0;           // bytes of unfinished packets
};
