// What a script of the administrator's measures here: processes, their list, the processor's load.
//
// A handler blocks its own thread until the script has ended, TEST-Process and GetProcessesList without limit.  It
// leaves no file behind.  Output of any size is read in little memory.
#pragma once

#include "protocol/bvrequest.h"
#include "protocol/tavreply.h"

// Parameter 2 is the name of a process; answers the count that `proccntscript` prints for it.  The name goes to the
// shell as it is: blanks make several arguments, and the shell's special characters act.
void ProcessTest_Process(const BVRequest& request, TAVReply& reply);

// Answers the number that `cpuusagescript` prints, a load in percent; the script has 8 seconds.
void ProcessTest_CPU(const BVRequest& request, TAVReply& reply);

// Answers the lines that `proclistscript` prints.  A line end at the end of the output repeats the last line: the
// servers are used to it.  Of more than 16 MiB of lines the first are answered.
void ProcessInfo_ProcessesList(const BVRequest& request, TAVReply& reply);
