// Connections whose packet is not whole yet.  A peer that is slow or silent, or a stranger, costs neither a thread
// nor more memory than a small record.
//
// A packet that is there when its connection is accepted is received at once, and nothing is recorded; that is the
// common case.  Any other connection is watched by an epoll instance, for one event at a time (EPOLLONESHOT): of
// the threads that wait there, one gets it, and nobody else until it has received what there is.
//
// A stranger's bytes are counted and dropped as soon as the head shows him up; he is told so, by the closed
// connection and the same message, where his packet ends.  What peers with a good proof have sent so far is bounded
// for all of them together.  Any thread; a lock guards the records, and no call waits under it.
#pragma once

#include <netinet/in.h>
#include <stdint.h>

#include <list>
#include <memory>
#include <vector>

#include "agent/session.h"
#include "core/closers.h"
#include "core/mutex.h"
#include "core/zostring.h"
#include "protocol/packethead.h"

class TReception {
 public:
  // Connections are watched by the given epoll instance; their events carry the numbers that Readable() takes,
  // which are below kNoConnection.
  explicit TReception(int epollDescriptor);
  static constexpr uint64_t kNoConnection = UINT64_MAX;

  // How many may be received at once.
  int Most() const { return static_cast<int>(mostAtOnce); }
  // Begins a session on an accepted, non-blocking socket and receives what there is.  True when that is a whole
  // packet to be served: `whole` has it then.  When as many as may are being received, the longest silent one makes
  // room.  Throws when memory is short, and nothing has begun then.
  bool Admit(TFd socket, in_addr peer, TConnection& whole);
  // The same for an event of a connection that is being received, within bounds.  A lack of memory ends the
  // session.
  bool Readable(uint64_t number, TConnection& whole);
  // Ends the sessions that have been silent for longer than the settings allow.
  void ExpireSilent();
  // Milliseconds until ExpireSilent has something to do; -1 when nobody waits.  Who asked is told by WakeMainLoop()
  // when that changes.
  int MsUntilExpiry();
  // Ends the sessions that have waited longest, to make room: descriptors or memory have run out.  False when there
  // is none to end.
  bool MakeRoom();

 private:
  struct TPending {
    TFd socket;
    in_addr peer = {};
    TPacketHead head;
    String packet;           // what was received, once the head has proved good
    bool hopeless = false;   // a stranger's: nothing is kept
    bool whole = false;      // all of it has come
    uint32_t serial = 0;     // tells connections apart that had one descriptor; 0: not watched
    int counted = 0;         // bytes of `packet` that `held` counts
    long long lastData = 0;  // seconds of CLOCK_MONOTONIC
    std::list<TPending>::iterator self;
  };
  using TRecords = std::list<TPending>;
  enum class TOutcome { kMore, kWhole, kOver };

  TOutcome Receive(TPending& pending, const TPasswordKeys& keys, TRecords& over) REQUIRES(mutex);
  void Take(TPending& pending, int n, const TPasswordKeys& keys) REQUIRES(mutex);
  bool LetAHolderGo(const TPending& but, TRecords& over) REQUIRES(mutex);
  bool Keep(TRecords& fresh, TRecords& over) REQUIRES(mutex);
  bool Watch(int operation, const TPending& pending) REQUIRES(mutex);
  TPending* Find(uint64_t number) REQUIRES(mutex);
  void Leave(TPending& pending, TRecords& from, TRecords& over) REQUIRES(mutex);
  static bool Settle(TRecords& over, const TPasswordKeys& keys, TConnection& whole);

  const int epoll;
  const size_t mostAtOnce;  // connections received at once
  TMutex mutex;
  std::unique_ptr<char[]> buffer GUARDED_BY(mutex);
  TRecords waiting GUARDED_BY(mutex);                // the longest silent first
  std::vector<TPending*> watched GUARDED_BY(mutex);  // by descriptor
  uint32_t lastSerial GUARDED_BY(mutex) = 0;
  long long held GUARDED_BY(mutex) = 0;        // bytes of unfinished packets
  bool expiryKnown GUARDED_BY(mutex) = false;  // the main thread will look by itself
};
