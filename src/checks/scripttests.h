// Tests that run what the server asks for and report what came out: a command line, or a script that it sends.
//
// A handler blocks its own thread until its child has ended.  It leaves no file behind.  Output of any size is read
// in little memory.
#pragma once

#include "protocol/bvrequest.h"
#include "protocol/tavreply.h"

// Parameter 1 is a command line, 4 its time-out in milliseconds (see SystemEx); answers the exit code.
void ProcessTest_External(const BVRequest& request, TAVReply& reply);

// Parameters: a command line with %script% and %params% in it, the script's text, its parameters, the time-out in
// seconds, the number of output lines wanted.  Answers the result line, which is the first that begins with
// "scriptres:" or else the last one, and the lines wanted (16 MiB at most); empty lines do not count.
void ProcessTest_ShellScript(const BVRequest& request, TAVReply& reply);
