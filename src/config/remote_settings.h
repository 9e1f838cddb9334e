// What the server may ask about the agent and change in it.
//
// Permissions are checked before a request comes here.  Any number of threads may be in here at once.
#pragma once

#include "protocol/bvrequest.h"
#include "protocol/tavreply.h"

// "GetInfo": the agent, its counters, its tests and actions and which of them are enabled, the host.
void GetAgentStatus(const BVRequest& request, TAVReply& reply);
// "GetSettings": all of "GetInfo", then the management settings, the password in clear among them.
void GetAgentSettings(const BVRequest& request, TAVReply& reply);
// "SetSettings": takes lines "name=value" and saves the configuration file.  The lines of one request come into
// force together, at the end, also when the save fails (then the answer is "300" and why).  Waits for loads and
// other saves.
void SetAgentSettings(const BVRequest& request, TAVReply& reply);
