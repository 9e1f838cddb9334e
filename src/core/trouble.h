// Failures of system calls that say nothing about the object they were made for.
#pragma once

#include <errno.h>

// The agent is short of descriptors or memory.  The object may be anything, so whatever would be concluded from the
// failure (it is not there, it is empty, it adds nothing) may be wrong: the answer is an error.
inline bool OwnTrouble(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM || error == ENOBUFS;
}

// Makes a call that fails with -1 as often as signals interrupt it.
template <class TCall>
auto Uninterrupted(TCall call) {
  for (;;) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}
