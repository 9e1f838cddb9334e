// Preloaded into the agent: lets the n-th call of a kind fail, once.  TAV_FAULTS names the file that says which.
//
// All the calls below take and return integers and pointers, in registers, so one shape of function serves them
// all; it carries the call's name by its assembler name, as the headers have other ideas of its type.  Forked
// children count as the agent until they exec; what they exec is not preloaded.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <unwind.h>

#include "fault_control.h"

enum { kMem = 1 << kMemory, kDesc = 1 << kDescriptors, kProc = 1 << kProcesses, kSpace = 1 << kDisk };
enum { kStat = 1 << kStatus, kIntr = 1 << kInterrupted };

static const int kErrors[kFaultKinds] = {0, ENOMEM, EMFILE, EAGAIN, ENOSPC, ENOMEM, EINTR};
static const unsigned long kHeaderSize = 64;  // the program's headers lie behind it

static TFaultControl* control;

typedef struct {
  unsigned long base;
  int depth;
} TCallers;

static _Unwind_Reason_Code NoteCaller(struct _Unwind_Context* context, void* argument) {
  TCallers* callers = argument;
  const unsigned long at = _Unwind_GetIP(context) - callers->base;
  if (at < 1ul << 28) control->where[callers->depth++] = at - 1;  // the agent's, not a library's
  return callers->depth < kFaultCallers ? _URC_NO_REASON : _URC_END_OF_STACK;
}

static int Fails(int kinds, const char* call) {
  const int kind = control == NULL ? kNoFault : __atomic_load_n(&control->kind, __ATOMIC_SEQ_CST);
  if (kind == kNoFault || !(kinds & 1 << kind) || __atomic_sub_fetch(&control->left, 1, __ATOMIC_SEQ_CST) != 0)
    return 0;
  __atomic_store_n(&control->kind, kNoFault, __ATOMIC_SEQ_CST);
  TCallers callers = {getauxval(AT_PHDR) - kHeaderSize, 0};
  _Unwind_Backtrace(NoteCaller, &callers);
  strncpy(control->call, call, sizeof control->call - 1);
  errno = kErrors[kind];
  return 1;
}

static int IsFile(long fd) {
  struct stat status;
  return fstat((int)fd, &status) == 0 && S_ISREG(status.st_mode);
}

// The whole time is still to be slept.
static long Interrupt(const struct timespec* wanted, struct timespec* rest, long result) {
  if (rest != NULL) *rest = *wanted;
  return result;
}

#define DUPLICATES (b == F_DUPFD || b == F_DUPFD_CLOEXEC)
#define REST(wanted, rest, result) Interrupt((const void*)(wanted), (void*)(rest), result)

// Kinds, call, when it counts, what it returns when it fails.  By hand: clang-format breaks within the rows.
// clang-format off
#define CALLS(X)                                                                                                  \
  X(kMem, mmap64, 1, -1) X(kMem, mmap, 1, -1) X(kMem, mremap, 1, -1) X(kMem, fdopendir, 1, 0)                     \
  X(kMem, epoll_ctl, b != 2, -1) X(kDesc, open64, 1, -1) X(kDesc, open, 1, -1) X(kDesc, __open64_2, 1, -1)        \
  X(kDesc, openat64, 1, -1) X(kDesc, openat, 1, -1) X(kDesc, __openat64_2, 1, -1) X(kDesc, opendir, 1, 0)         \
  X(kDesc, socket, 1, -1) X(kDesc, fcntl64, DUPLICATES, -1) X(kDesc, fcntl, DUPLICATES, -1)                       \
  X(kDesc, epoll_create1, 1, -1) X(kDesc, eventfd, 1, -1) X(kDesc, syscall, a == SYS_pidfd_open, -1)              \
  X(kDesc, freopen64, 1, 0) X(kIntr, accept4, 1, -1) X(kProc, pthread_create, 1, EAGAIN) X(kSpace, fsync, 1, -1)  \
  X(kSpace, rename, 1, -1) X(kSpace, link, 1, -1) X(kSpace, fchmod, 1, -1) X(kSpace, mkdir, 1, -1)                \
  X(kSpace, ftruncate64, 1, -1) X(kSpace | kIntr, write, kind == kInterrupted || IsFile(a), -1)                   \
  X(kStat, fstatat64, 1, -1) X(kStat, stat64, 1, -1) X(kStat, lstat64, 1, -1)                                     \
  X(kStat, fstat64, 1, -1) X(kStat, statfs64, 1, -1) X(kStat, faccessat, 1, -1) X(kStat, access, 1, -1)           \
  X(kStat, readdir64, 1, 0) X(kIntr, read, 1, -1) X(kIntr, __read_chk, 1, -1) X(kIntr, pread64, 1, -1)            \
  X(kIntr, recv, 1, -1) X(kIntr, __recv_chk, 1, -1) X(kIntr, recvfrom, 1, -1) X(kIntr, send, 1, -1)               \
  X(kIntr, sendto, 1, -1) X(kIntr, poll, 1, -1) X(kIntr, __poll_chk, 1, -1) X(kIntr, ppoll, 1, -1)                \
  X(kIntr, waitid, 1, -1) X(kIntr, usleep, 1, -1) X(kIntr, epoll_wait, 1, -1) X(kIntr, waitpid, 1, -1)            \
  X(kIntr, sleep, 1, a) X(kIntr, nanosleep, 1, REST(a, b, -1)) X(kIntr, clock_nanosleep, 1, REST(c, d, EINTR))
// clang-format on

typedef long TCall(long a, long b, long c, long d, long e, long f);

#define DEFINE(kinds, name, counts, failure)                                 \
  static TCall* real_##name;                                                 \
  TCall shim_##name __asm__(#name);                                          \
  long shim_##name(long a, long b, long c, long d, long e, long f) {         \
    const int kind = control == NULL ? kNoFault : control->kind;             \
    if (kind != kNoFault && (counts) && Fails(kinds, #name)) return failure; \
    return real_##name(a, b, c, d, e, f);                                    \
  }
CALLS(DEFINE)

// The allocator is called before anything else has run, and has names of its own within the C library.
#define ALLOCATOR(name)                                              \
  TCall __libc_##name, shim_##name __asm__(#name);                   \
  long shim_##name(long a, long b, long c, long d, long e, long f) { \
    return Fails(kMem, #name) ? 0 : __libc_##name(a, b, c, d, e, f); \
  }
ALLOCATOR(malloc)
ALLOCATOR(calloc)
ALLOCATOR(realloc)

static TCall* realFork;
pid_t shim_fork(void) __asm__("fork");
pid_t shim_fork(void) {
  const pid_t child = Fails(kProc, "fork") ? -1 : (pid_t)realFork(0, 0, 0, 0, 0, 0);
  if (child > 0 && control != NULL) control->child = child;
  return child;
}

__attribute__((constructor)) static void Begin(void) {
#define FIND(kinds, name, counts, failure) real_##name = (TCall*)dlsym(RTLD_NEXT, #name);
  CALLS(FIND)
  realFork = (TCall*)dlsym(RTLD_NEXT, "fork");
  unsetenv("LD_PRELOAD");
  const char* path = getenv("TAV_FAULTS");
  const long fd = path == NULL ? -1 : real_open64((long)path, O_RDWR | O_CLOEXEC, 0, 0, 0, 0);
  if (fd < 0) return;
  void* mapped = (void*)real_mmap(0, sizeof *control, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close((int)fd);
  if (mapped == MAP_FAILED) return;
  TFaultControl* shared = mapped;
  if (!shared->startUp) shared->kind = kNoFault;
  __atomic_add_fetch(&shared->images, 1, __ATOMIC_SEQ_CST);
  control = shared;
}
