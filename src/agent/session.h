// One connection's request, from the whole packet to the reply.
//
// A connection is received by the main thread (agent/reception.h) until its packet is whole, then a session serves
// it on a thread of its own: however slow or silent a peer is, only a request that can be answered costs a thread.
#pragma once

#include <netinet/in.h>

#include "core/closers.h"
#include "core/zostring.h"

// The size of one receive.  What a peer sends beyond its packet is looked at only as far as it lies in the last of
// these chunks, so this size shows.
inline constexpr int kChunk = 1024;

// A connection and what was received on it.
struct TConnection {
  TFd socket;
  in_addr peer = {};
  String packet;
};

// What the command handlers learn of the connection.
struct ThreadParams {
  int socket;
  in_addr peer;
};

// Counts a session as open and running; called once for each connection that passes the filter.
void BeginSession();
// Shows that the session is over, closes the connection and counts the session as ended.
void EndSession(TFd& socket);

// Serves the whole packet of `connection` and ends the session.  Blocks for as long as the command takes.
void ClientExecute(TConnection& connection);

// How much the next receive may ask for when `missing` bytes are still awaited: whole chunks while more than one is
// missing (they cannot reach beyond the end), then one chunk.  At most `room` (a multiple of kChunk).
int NextReadSize(long long missing, int room);
