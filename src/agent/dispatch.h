// From the request's first line to the handler of its command.
#pragma once

#include <netinet/in.h>

#include "agent/flags.h"
#include "agent/upgrade.h"
#include "protocol/bvrequest.h"
#include "protocol/tavreply.h"

// What the command handlers learn of the connection.
struct ThreadParams {
  int socket;
  in_addr peer;
};

// Runs the command that the request names and fills the reply.  True when the command is known, whatever its
// outcome.  `flags` takes what the command asks of the main thread.
bool ProcessBVRequest(const BVRequest& request, TAVReply& reply, TTAVFlags& flags, const ThreadParams& params,
                      UpgradeRec& upgrade);
