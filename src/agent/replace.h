// The process image replaced by another program.
#pragma once

// Runs `path` in this process's place with the given arguments and environment, signals as a new program expects
// them.  Every descriptor but the standard three is close-on-exec.  Returns only when it failed.  Safe in a signal
// handler.
void ReplaceProcess(const char* path, char** argv, char** envp);
