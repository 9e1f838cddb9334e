// Runs programs as child processes and waits for them.
//
// Any number of threads may be in here at once; a call blocks its own thread only.  A child starts with no
// descriptor but its streams, default signal actions, TMPDIR as published (core/tempdir.h), and leads a session of
// its own, except under RunShell().
#pragma once

#include "core/zostring.h"

// Runs `cmdline` (split as core/cmdline_split.h says, the program looked up on the PATH) in the directory `dir`
// (null, or one that can't be entered: the agent's own).
//
// `infile`, `outfile` and `errfile` become its streams, null meaning /dev/null.  Output files are made anew,
// private to this user, and belong to the caller; when both have one path, both streams append to one file, and an
// input of that path is closed.  A stream whose file can't be opened is closed.
//
// `timeout` is in milliseconds, looked at once a second: when the whole seconds since the start exceed it, the
// child's process group is killed.  0 waits for ever, other negative values but -1 kill at the first look.  -1
// waits for up to a second: a child that still runs then is a success with exit code 0, and ReapChildren() takes
// its end. The end of a child is noticed at once.
//
// Returns 1 and sets `exitcode`; or 0 with `error` one of "fork error", "exec error", "exec error: <reason>",
// "cannot terminate process", "abnormal termination" (a signal ended it, ours included).
int SystemEx2(const char* cmdline, const char* dir, const char* infile, const char* outfile, const char* errfile,
              int timeout, int& exitcode, String& error);

// The same with all three streams on /dev/null.
int SystemEx(const char* cmdline, const char* dir, int timeout, int& exitcode, String& error);

// Hands `command` to /bin/sh and waits for its end without limit.  The shell shares the agent's streams and
// session. Unlike system() it leaves the agent's own signal actions alone.  Returns the wait status (exit status
// 127: no shell), or -1 when no child could be started.
int RunShell(const char* command);

// Takes the ends of the children that SystemEx left running.  Never blocks; to be called after every SIGCHLD.
void ReapChildren();
