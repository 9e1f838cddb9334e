// Signal handlers: they set a word and wake the main thread, which does the work.
#pragma once

// SIGHUP asks for the configuration to be read again.  Daemon mode only; otherwise it keeps its default action.
void InstallReloadHandler();
// SIGSEGV leaves a message; after three minutes it also asks for a new start.  SIGPIPE and SIGXFSZ are ignored.
void InstallFaultHandlers();

// The words, taken: each is true once for what was raised since the last call.
bool TakeConfigReload();
// True when a fault asks for a new start: what follows must rely on nothing that another thread may hold.
bool TakeCrashRestart();
