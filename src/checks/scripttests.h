// Tests that run something here and report what came out: helper scripts of the administrator, a command line or a
// script of the server.
//
// A handler blocks its own thread until its child has ended, TEST-Process and GetProcessesList without limit.  It
// leaves no file behind.  Output of any size is read in little memory.
#pragma once

#include "protocol/bvrequest.h"
#include "protocol/tavreply.h"

// Parameter 2 is the name of a process; answers the count that `proccntscript` prints for it.  The name goes to the
// shell as it is: blanks make several arguments, and the shell's special characters act.
void ProcessTest_Process(const BVRequest& request, TAVReply& reply);

// Answers the number that `cpuusagescript` prints, a load in percent; the script has 8 seconds.
void ProcessTest_CPU(const BVRequest& request, TAVReply& reply);

// Parameter 1 is a command line, 4 its time-out in milliseconds (see SystemEx); answers the exit code.
void ProcessTest_External(const BVRequest& request, TAVReply& reply);

// Answers the lines that `proclistscript` prints.  A line end at the end of the output repeats the last line: the
// servers are used to it.  Of more than 16 MiB of lines the first are answered.
void ProcessInfo_ProcessesList(const BVRequest& request, TAVReply& reply);

// Parameters: a command line with %script% and %params% in it, the script's text, its parameters, the time-out in
// seconds, the number of output lines wanted.  Answers the result line, which is the first that begins with
// "scriptres:" or else the last one, and the lines wanted (16 MiB at most); empty lines do not count.
void ProcessTest_ShellScript(const BVRequest& request, TAVReply& reply);
