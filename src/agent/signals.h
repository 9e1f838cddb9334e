// Signal handlers: they set a word and wake the main thread, which does the work.
//
// No signal is ignored: one that is to do nothing has a handler that does nothing.  So a new program that takes
// this process's place finds default actions, without an instant before in which a broken pipe would end this one.
#pragma once

// SIGPIPE and SIGXFSZ do nothing: the write fails, as it does on a full disk.  SIGCHLD, which may be inherited as
// ignored, has the main thread look for children that nobody waits for.  First of all.
void InstallQuietHandlers();
// SIGHUP asks for the configuration to be read again.  Daemon mode only; otherwise it keeps its default action.
void InstallReloadHandler();
// SIGSEGV leaves a message; after three minutes it also asks for a new start.
void InstallFaultHandler();

// The words, taken: each is true once for what was raised since the last call.
bool TakeConfigReload();
// True when a fault asks for a new start: what follows must rely on nothing that another thread may hold.  The main
// thread has a second; then the thread that broke takes the word itself.
bool TakeCrashRestart();
