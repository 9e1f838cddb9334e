// The file compare test: two files by time, size or contents, or a text in a file.
//
// Everything here works on its arguments alone; any number of threads may be in here at once.
#pragma once

#include "protocol/bvrequest.h"
#include "protocol/tavreply.h"

// Compares the contents as far as the shorter file goes: one that begins the other equals it.  Returns 1 when
// equal, 0 when different, -1 when either cannot be opened or read.  Blocks on the files.
int CompareFiles(const char* path1, const char* path2);

void ProcessTest_FileCompare(const BVRequest& request, TAVReply& reply);
