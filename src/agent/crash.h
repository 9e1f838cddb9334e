// What the agent still does after a segmentation fault: it leaves its messages, and starts anew when it has run
// long enough for that not to become a loop.
//
// The faulting thread may hold any lock and may have torn any memory, so everything here works from a record that
// was prepared before, with system calls alone.
#pragma once

#include "agent/showmessage.h"

// Prepares the record: the command line and environment for a new start.  Once, before the first session.
void RememberCommandLine(char** argv, char** envp);
// Brings the record up to date with the settings in force and the time zone; cheap when nothing has changed.  Main
// thread, whenever it looks at anything.
void RefreshCrashRecord();

// Shows a message as showmessage would.  Safe in a signal handler.
void CrashMessage(const char* text, MsgType type);

// Replaces the process by a new instance, with the messages of a restart: the pid file and temporary files go.
// Returns only when that failed.  Any thread; safe in a signal handler.
void RestartFromRecord();
