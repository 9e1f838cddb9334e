#include "agent/workers.h"

#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <exception>
#include <initializer_list>
#include <utility>

#include "core/mutex.h"

namespace {

constexpr size_t kStackBytes = 512 * 1024;  // name lookups are the deepest thing that runs here
constexpr int kIdleSeconds = 10;            // an idle thread ends after this

// A waiting thread.  It lives on that thread's stack and is linked while it waits.
struct TIdleWorker {
  TIdleWorker() {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&wake, &attributes);
    pthread_condattr_destroy(&attributes);
  }
  ~TIdleWorker() { pthread_cond_destroy(&wake); }
  TIdleWorker(const TIdleWorker&) = delete;
  TIdleWorker& operator=(const TIdleWorker&) = delete;

  pthread_cond_t wake;
  std::unique_ptr<TConnection> work;
  TIdleWorker* next = nullptr;
};

TMutex workersMutex;  // held to link and unlink, never over a session
// The last to become idle is the first to work again: its stack is warm, and the others get to end.
TIdleWorker* idle GUARDED_BY(workersMutex) = nullptr;

void Unlink(TIdleWorker& worker) REQUIRES(workersMutex) {
  for (TIdleWorker** link = &idle; *link != nullptr; link = &(*link)->next) {
    if (*link != &worker) continue;
    *link = worker.next;
    return;
  }
}

// Waits for the next connection; false when none came in time.
bool AwaitWork(TIdleWorker& worker) {
  timespec deadline;
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += kIdleSeconds;

  TLock lock(workersMutex);
  worker.next = idle;
  idle = &worker;
  while (worker.work == nullptr) {
    if (pthread_cond_timedwait(&worker.wake, workersMutex.Native(), &deadline) == 0) continue;
    if (worker.work != nullptr) break;
    Unlink(worker);
    return false;
  }
  return true;
}

// What a session throws is its own affair, also what it throws at its end.
void Work(TConnection& connection) {
  try {
    ClientExecute(connection);
  } catch (const std::exception&) {
  }
}

void* WorkerMain(void* argument) {
  TIdleWorker worker;
  worker.work.reset(static_cast<TConnection*>(argument));
  do {
    Work(*worker.work);
    worker.work.reset();
  } while (AwaitWork(worker));
  return nullptr;
}

bool HandToIdle(std::unique_ptr<TConnection>& connection) {
  TLock lock(workersMutex);
  TIdleWorker* worker = idle;
  if (worker == nullptr) return false;
  idle = worker->next;
  worker->work = std::move(connection);
  pthread_cond_signal(&worker->wake);
  return true;
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

bool RunSession(std::unique_ptr<TConnection>& connection) {
  if (HandToIdle(connection)) return true;
  if (!StartThread(WorkerMain, connection.get())) return false;
  (void)connection.release();  // the thread owns it now
  return true;
}
