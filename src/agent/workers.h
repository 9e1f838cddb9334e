// The threads that sessions run on.  A thread whose session has ended waits a while for the next one; as many are
// made as sessions run at once, the system's limits aside.
#pragma once

#include <memory>

#include "agent/session.h"

// Runs `run(argument)` on a detached thread of modest stack that takes no signals but its own faults.  Returns
// false when no thread can be had.
bool StartThread(void* (*run)(void*), void* argument);

// Has `ClientExecute` serve the connection on another thread.  Returns false when no thread can be had; the
// connection is then still the caller's.  Main thread only.
bool RunSession(std::unique_ptr<TConnection>& connection);
