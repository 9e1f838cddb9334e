// Starts a child process of a program with many threads.
//
// Between fork and exec the child shares locks with threads that do not exist in it, so it touches nothing but what
// was prepared before and system calls.  It is a true fork, not vfork: what the child may hang on (a stream that is
// a FIFO, a working directory on a dead server) then falls under the caller's time-out.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include "core/zostring.h"

inline constexpr int kNotePathSize = 1024;
inline constexpr int kExecFailed = 255;     // exit status of a child that wrote a note
inline constexpr int kShellNotFound = 127;  // exit status of one that has none to write, as system() has it

struct TChildStreams {
  const char* in;   // null: /dev/null, for each of the three
  const char* out;  // made anew and private to this user; a device is written as it is
  const char* err;  // the same path as `out`: both append to one open file
};

struct TChildPlan {
  char* const* argv = nullptr;
  const char* dir = nullptr;  // null: stays where the agent is; one that can't be entered counts as null
  const TChildStreams* streams = nullptr;  // null: shares the agent's streams and its session
  const char* noteFolder = nullptr;        // see NoteFolder(); null: no note
  volatile int* noteLost = nullptr;        // in shared memory: set when a shortage has kept the note away
};

// Returns the child's pid, or -1.  It has default signal actions, no signal blocked, TMPDIR as published, the
// descriptor limit that the agent began with, and no descriptor but 0, 1 and 2; argv[0] is looked up on the PATH.
// Standard input stays closed when it has the path of an output: that file does not exist yet.
pid_t StartChild(const TChildPlan& plan);

// The limit of descriptors that the process began with.
const rlimit& DescriptorLimitAtStart();

// Where children leave the reason why they could not be executed: an absolute path with its slash, or empty.
void NoteFolder(char (&folder)[kNotePathSize]);
// "tmpStav-<pid>.txt" there; false without a folder.  Safe between fork and exec.
bool NotePath(const char* folder, pid_t pid, char (&path)[kNotePathSize]);
