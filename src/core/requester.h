// Whom a thread works for: the connection whose request it carries out.
//
// Nobody needs the answer to a request whose connection has been reset, so what waits on a requester's behalf looks
// at that connection as well.  A peer that has only finished sending still waits for its answer and has not gone.
// Everything here concerns the calling thread; a thread that works for nobody waits undisturbed.
#pragma once

// Names the connection for as long as the object lives.  The descriptor stays its owner's and must outlive it.
class TRequester {
 public:
  explicit TRequester(int fd);
  TRequester(const TRequester&) = delete;
  TRequester& operator=(const TRequester&) = delete;
  ~TRequester();
};

// For a wait's own poll: asked for no events, it reports POLLERR or POLLHUP once the requester has gone.  -1, which
// poll passes over, when there is none.
int RequesterFd();

// Whether the connection has been reset or has broken.  One system call, no wait.
bool RequesterGone();

// Sleeps for the whole time, whatever signals arrive; false, and at once, when the requester has gone.  A time that
// is not above 0 only looks.
bool SleepUnlessGone(long long us);
