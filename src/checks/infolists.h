// Folder listings, for an operator who looks for the file or folder that a test shall watch.
#pragma once

#include "core/filesearch.h"
#include "core/zostring.h"
#include "protocol/bvrequest.h"
#include "protocol/tavreply.h"

// "GetFilesList": the folders and files of one folder, with the attributes of core/filesearch.h.  Allowed when any
// test that takes a file name is.  A folder that can't be opened is listed as empty, unless that is for trouble of
// the agent's own: this, and a listing that breaks off, gives kNotExamined.
void ProcessInfo_GetFileList(const BVRequest& request, TAVReply& reply);

// Appends one entry of `dir` (which ends in "/"): name and attributes, then size, status-change time and
// modification time as far as they are wanted.  False when trouble of the agent's own hides one of them.
bool AddFileStr(TAVReply& list, const String& dir, const TSearchRec& entry, int withSize, int withCTime,
                int withMTime);
