// The threads that receive and serve.
//
// Several wait on one epoll instance.  The kernel gives an event to one of them, which accepts or receives, and
// serves the request itself: no thread hands anything to another.  One is always left waiting, however long the
// others' requests take; as many are made as it takes for that, the system's limits aside.
#pragma once

#include "agent/acceptor.h"
#include "agent/reception.h"

// What there is to wait for.  Lives until the process ends.
struct TServing {
  int epoll;
  TAcceptor& acceptor;
  TReception& reception;
};

// Runs `run(argument)` on a detached thread of modest stack that takes no signals but its own faults.  Returns
// false when no thread can be had.
bool StartThread(void* (*run)(void*), void* argument);

// Starts the first thread that waits.  Returns false when none can be had.  Once.
bool StartServing(TServing& serving);
