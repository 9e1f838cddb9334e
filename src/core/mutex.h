// A mutex and its guard, with the annotations by which clang checks who may touch what (-Wthread-safety).
//
// The agent's process-wide mutexes and what each guards:
//   optmutex       the master copy of the settings, and the configuration file  (config/settings.h)
//   showmutex      console and log files, a line at a time                      (agent/showmessage.cpp)
//   fidmutex       the running number of temporary file names                   (core/tempfile.cpp)
//   registermutex  the list of files that must not outlive the process          (core/tempregister.cpp)
//   leftmutex      the children that nobody waits for                           (core/childwait.cpp)
//   upgrade_mutex  the upgrade in progress and the one that awaits hand-over    (agent/upgrade.cpp)
//   workersMutex   how many threads wait for events, and the spare ones         (agent/workers.cpp)
//   two members    the listener; the connections that are being received        (agent/acceptor.h, reception.h)
// None is held while another is taken, and none over a name lookup, a child or a socket.
#pragma once

#include <pthread.h>

#if defined(__clang__)
#define TAV_ANNOTATE(x) __attribute__((x))
#else
#define TAV_ANNOTATE(x)
#endif
#define CAPABILITY(name) TAV_ANNOTATE(capability(name))
#define SCOPED_CAPABILITY TAV_ANNOTATE(scoped_lockable)
#define GUARDED_BY(m) TAV_ANNOTATE(guarded_by(m))
#define REQUIRES(m) TAV_ANNOTATE(requires_capability(m))
#define EXCLUDES(m) TAV_ANNOTATE(locks_excluded(m))
#define ACQUIRE(...) TAV_ANNOTATE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) TAV_ANNOTATE(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) TAV_ANNOTATE(try_acquire_capability(__VA_ARGS__))

class CAPABILITY("mutex") TMutex {
 public:
  constexpr TMutex() = default;
  TMutex(const TMutex&) = delete;
  TMutex& operator=(const TMutex&) = delete;

  void Lock() ACQUIRE() { pthread_mutex_lock(&mutex); }
  bool TryLock() TRY_ACQUIRE(true) { return pthread_mutex_trylock(&mutex) == 0; }
  void Unlock() RELEASE() { pthread_mutex_unlock(&mutex); }
  pthread_mutex_t* Native() { return &mutex; }  // for condition variables

 private:
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
};

struct TLocked {};  // the caller has locked the mutex already

class SCOPED_CAPABILITY TLock {
 public:
  explicit TLock(TMutex& m) ACQUIRE(m) : mutex(m) { mutex.Lock(); }
  TLock(TMutex& m, TLocked) REQUIRES(m) : mutex(m) {}
  ~TLock() RELEASE() { mutex.Unlock(); }
  TLock(const TLock&) = delete;
  TLock& operator=(const TLock&) = delete;

 private:
  TMutex& mutex;
};
