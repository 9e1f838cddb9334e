// Tests of the file system: free space, folder sizes, the presence and age of a file, file checksums.
//
// Each handler runs on its session's thread and blocks only that.
#pragma once

#include "core/zostring.h"
#include "protocol/bvrequest.h"
#include "protocol/tavreply.h"

// "TEST-UNC": free space of the file system that holds a path.
void ProcessTest_UNC(const BVRequest& request, TAVReply& reply);
// "TEST-FolderSize": bytes in the files of a folder.
void ProcessTest_FolderSize(const BVRequest& request, TAVReply& reply);
// "TEST-FileExists": size, times and age of a file.
void ProcessTest_FileExists(const BVRequest& request, TAVReply& reply);
// "TEST-FileCRC": the checksum of a file's content.
void ProcessTest_FileCRC(const BVRequest& request, TAVReply& reply);

// Bytes in all, free, and free to unprivileged users, of the file system that holds `path`.  False with errno set.
bool GetUNCDriveInfo(const char* path, long long& total, long long& free, long long& avail);

// Bytes in the files of a folder, or, when `path` is not a folder, in those files of the folder before its last "/"
// that match the wildcard behind it; with `recursive` in its subfolders too, of any depth.  Links are neither
// counted nor followed, folders themselves weigh nothing.  -1 when the folder can't be listed, when trouble of the
// agent's own or a read error leaves the size unknown, and without `recursive` when a name without wildcards names
// nothing.
long long GetFolderSize(const String& path, int recursive);

// Size, status-change and modification time of what the name itself stands for: a link is not followed.  False with
// errno set.
bool GetFileInfo(const char* name, long long& size, long& ctime, long& mtime);

// The checksum of a file's content; or false and the reason.  An empty file and one whose length is a multiple of
// 2048 bytes have no checksum: "Read error".
bool GetFileCRC(const char* path, unsigned int* crc, String& error);
