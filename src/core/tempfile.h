// Names for temporary files, and files at names that others can guess.
//
// Any number of threads may call these at once.
#pragma once

#include <sys/types.h>

#include "core/closers.h"
#include "core/mutex.h"

extern TMutex fidmutex;                      // held for the increment only
extern int filenumber GUARDED_BY(fidmutex);  // numbers the temporary files, 1 to 1000000 and round again

// The process id shifted left by 8 bits plus the number of the calling thread, with wrap-around: no two threads of
// this process share it, so it serves in file names and nowhere else.
int GetUniqueThreadID();

// Fills `buf` of `len` bytes with a path in the temporary directory ("./" when none is set); makes no file.  Where
// others can write too it lies in a folder of our own there (SafeTempFolder): a path right in the directory would
// be theirs to block. With `name` the path is the directory and that name, cut at the buffer's end.  With null it
// is a name of this thread that no regular file bears; up to 2000 numbers are tried. Returns 1; or 0 and an empty
// buffer when the room is short or every number is taken.  A null `buf` or a `len` below 16 gives 0 and leaves
// `buf` alone.
int gettempfilename(char* buf, int len, const char* name);

// Makes a new, empty file of this user's at `path` with exactly the bits of `mode`, whatever the umask.  What bears
// the name before is removed, not followed and not reused: it may be another user's trap or a crash's leftover.
// Opened for reading and writing, unless `extraFlags` has O_WRONLY; close-on-exec.  Fails with a closed descriptor
// and errno.  Safe between fork and exec.
TFd CreatePrivateFile(const char* path, mode_t mode, int extraFlags);

// Opens for reading what CreatePrivateFile() made and others wrote since.  Anything but a regular file of this user
// is refused.  Close-on-exec; never hangs.
TFd OpenPrivateFile(const char* path);
