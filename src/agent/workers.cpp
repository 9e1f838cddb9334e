#include "agent/workers.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <time.h>

#include <exception>
#include <initializer_list>

#include "agent/session.h"
#include "core/clock.h"
#include "core/mutex.h"

namespace {

constexpr size_t kStackBytes = 512 * 1024;  // name lookups are the deepest thing that runs here
constexpr int kIdleSeconds = 10;            // a spare thread ends after this
constexpr int kMostWaiting = 3;             // more are spare
constexpr long long kPauseUs = 100 * 1000;

// A spare thread.  It lives on that thread's stack and is linked while it is spare.
struct TSpare {
  TSpare() {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&wake, &attributes);
    pthread_condattr_destroy(&attributes);
  }
  ~TSpare() { pthread_cond_destroy(&wake); }
  TSpare(const TSpare&) = delete;
  TSpare& operator=(const TSpare&) = delete;

  pthread_cond_t wake;
  bool called = false;
  TSpare* next = nullptr;
};

TMutex workersMutex;                       // held to count and to link, never over a session
int waiting GUARDED_BY(workersMutex) = 0;  // threads that wait for events, or are on their way there
// The last to become spare is the first to be called: its stack is warm, and the others get to end.
TSpare* spares GUARDED_BY(workersMutex) = nullptr;

void* WorkerMain(void* argument);

void Unlink(TSpare& spare) REQUIRES(workersMutex) {
  for (TSpare** link = &spares; *link != nullptr; link = &(*link)->next) {
    if (*link != &spare) continue;
    *link = spare.next;
    return;
  }
}

// Takes the calling thread out of those that wait, and sees to it that there is another.  False when none can be
// had: then this one must go on waiting.
bool LeaveOneWaiting(TServing& serving) {
  {
    TLock lock(workersMutex);
    if (waiting > 1) {
      --waiting;
      return true;
    }
    if (spares != nullptr) {
      TSpare* const spare = spares;
      spares = spare->next;
      spare->called = true;
      pthread_cond_signal(&spare->wake);
      return true;
    }
  }
  return StartThread(WorkerMain, &serving);
}

// Comes back to wait for events: at once when few do, else when it is called.  False when that was not in time, and
// the thread may end.
bool WaitAgain(TSpare& spare) {
  timespec deadline;
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += kIdleSeconds;

  TLock lock(workersMutex);
  if (waiting < kMostWaiting) {
    ++waiting;
    return true;
  }
  spare.called = false;
  spare.next = spares;
  spares = &spare;
  while (!spare.called) {
    if (pthread_cond_timedwait(&spare.wake, workersMutex.Native(), &deadline) == 0) continue;
    if (spare.called) break;
    Unlink(spare);
    return false;
  }
  return true;
}

// Waits for an event and works it off.  True when that has brought a whole packet.  A lack of memory costs the
// connection that it is about.
bool AwaitPacket(TServing& serving, TConnection& whole) {
  epoll_event event;
  const int n = epoll_wait(serving.epoll, &event, 1, -1);
  if (n < 0 && errno != EINTR) SleepUs(kPauseUs);
  if (n <= 0) return false;
  try {
    if (event.data.u64 == TReception::kNoConnection) return serving.acceptor.Accept(whole);
    return serving.reception.Readable(event.data.u64, whole);
  } catch (const std::exception&) {
    return false;
  }
}

// What a session throws is its own affair, also what it throws at its end.
void Serve(TConnection& connection) {
  try {
    ClientExecute(connection);
  } catch (const std::exception&) {
  }
}

void* WorkerMain(void* argument) {
  TServing& serving = *static_cast<TServing*>(argument);
  TSpare spare;
  for (;;) {
    TConnection connection;
    if (!AwaitPacket(serving, connection)) continue;
    if (!LeaveOneWaiting(serving)) {
      EndSession(connection.socket);
      continue;
    }
    Serve(connection);
    if (!WaitAgain(spare)) return nullptr;
  }
}

// Signals are the main thread's; only the faults of a thread itself stay with it.
sigset_t MaskForWorkers() {
  sigset_t mask;
  sigfillset(&mask);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT}) sigdelset(&mask, fault);
  return mask;
}

}  // namespace

bool StartThread(void* (*run)(void*), void* argument) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_attr_setstacksize(&attributes, kStackBytes);
  const sigset_t mask = MaskForWorkers();
  sigset_t before;
  pthread_sigmask(SIG_BLOCK, &mask, &before);
  pthread_t thread;
  const int failed = pthread_create(&thread, &attributes, run, argument);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_attr_destroy(&attributes);
  return failed == 0;
}

bool StartServing(TServing& serving) {
  {
    TLock lock(workersMutex);
    waiting = 1;  // the thread may already count when this call has returned
  }
  return StartThread(WorkerMain, &serving);
}
