// The process image replaced by another program.
#pragma once

// False when `path` is plainly no program that this process may start.
bool CanStart(const char* path);

// Runs `path` in this process's place with the given arguments and environment, signals and the descriptor limit as
// a new program expects them.  Every descriptor but the standard three is close-on-exec.  Returns only when it
// failed; all is as it was then.  Any thread; safe in a signal handler.
void ReplaceProcess(const char* path, char** argv, char** envp);
