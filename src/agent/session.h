// One connection's request, from the whole packet to the reply.
//
// A connection is received (agent/reception.h) until its packet is whole, then a session has a thread to itself:
// however slow or silent a peer is, only a request that can be answered costs a thread.
#pragma once

#include <netinet/in.h>

#include "core/closers.h"
#include "core/zostring.h"

// A connection and what was received on it.
struct TConnection {
  TFd socket;
  in_addr peer = {};
  String packet;
};

// Counts a session as open and running; called once for each connection that passes the filter.
void BeginSession();
// Shows that the session is over, closes the connection and counts the session as ended.
void EndSession(TFd& socket);

// Serves the whole packet of `connection` and ends the session.  Blocks for as long as the command takes.
void ClientExecute(TConnection& connection);
