// Probes of other hosts' TCP and UDP services, as seen from this machine.
//
// Each handler runs on its session's thread and blocks it for as long as the lookup and the probe take, or until
// the requester has gone.  Success answers "200", the milliseconds taken and the bytes received; failure "301", the
// error text and the code of net/netresults.h.
#pragma once

#include "protocol/bvrequest.h"
#include "protocol/tavreply.h"

// TEST-TCP.  Parameters: host; port; time-out in milliseconds (0: 120000); data to send, may be empty; most bytes
// to receive.
void ProcessTest_TCP(const BVRequest& request, TAVReply& reply);

// TEST-UDP.  Parameters: host; port; time-out in milliseconds, of which whole seconds count, one at least; number
// of attempts; data to send; most bytes to receive.  A negative number of attempts makes none, and none succeeds.
void ProcessTest_UDP(const BVRequest& request, TAVReply& reply);
