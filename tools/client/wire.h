// Bytes to and from an agent: a connection whose every wait has an end.
//
// A wait ends when nothing has moved for the given time, and all of them at the link's deadline, so that a peer
// that drips is not waited for without end.  An object belongs to one thread.
#pragma once

#include <netdb.h>
#include <stddef.h>

#include <string>

#include "client/failures.h"
#include "client/target.h"
#include "core/closers.h"

// A reply longer than this is taken for noise: a folder of 200,000 entries fits many times over.
inline constexpr long long kMaxReply = 64LL * 1024 * 1024;

// The address that the target sees us under, as far as this host knows; empty when it cannot be told.  Sends
// nothing.
std::string OwnAddress(const TTarget& target, long long timeoutMs);

class TLink {
 public:
  // `until`: when all must be over, as MonotonicMs() counts; 0: never.
  explicit TLink(long long until = 0) : deadline(until) {}

  // Tries every address of the host.  Blocks at most `timeoutMs` for the resolver and for each address.
  bool Connect(const TTarget& target, long long timeoutMs, TFailure& failure);
  bool Send(const char* bytes, size_t n, long long timeoutMs, TFailure& failure);
  // Reads a packet behind its length field.  `firstMs` is the patience with the first byte, which the agent sends
  // only when the work is done; `timeoutMs` that with the others.
  bool ReadPacket(std::string& packet, long long firstMs, long long timeoutMs, TFailure& failure);
  // Waits until the agent's machine has acknowledged all that was sent.
  bool Drain(long long timeoutMs, TFailure& failure);

 private:
  bool ConnectTo(const addrinfo& address, long long timeoutMs, TFailure& failure);
  bool Late(const char* doing, TFailure& failure) const;
  bool Wait(short events, long long timeoutMs, const char* doing, TFailure& failure);
  bool Read(char* bytes, size_t n, long long firstMs, long long timeoutMs, TFailure& failure);
  bool Lost(int error, TFailure& failure);

  TFd fd;
  long long deadline;
  std::string name;  // of the target, for the failures
};
