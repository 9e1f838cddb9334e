// The action that runs a command on this machine.
#pragma once

#include "protocol/bvrequest.h"
#include "protocol/tavreply.h"

// Parameters: the command line, its working directory (empty: the agent's), an integer that must be one and is not
// used, the time-out in milliseconds.  Answers the exit code.  How lines are split and what time-outs mean:
// core/process.h.  Blocks until the command has ended.
void ProcessAct_ExternalCmd(const BVRequest& request, TAVReply& reply);
