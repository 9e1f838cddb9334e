#include "core/childstart.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <initializer_list>

#include "core/tempdir.h"
#include "core/tempfile.h"

namespace {

constexpr char kNull[] = "/dev/null";
constexpr int kNoteNameSize = 24;  // with its closing zero

// A program just written may still be open for writing in the child that another thread forked meanwhile, until
// that child gets to its exec.
constexpr int kBusyAttempts = 200;
constexpr timespec kBusyPause = {0, 5 * 1000 * 1000};

// The limit as it was before main() raised it: programs that close or count all descriptors suffer from a high one.
rlimit LimitAtStart() {
  rlimit limit = {RLIM_INFINITY, RLIM_INFINITY};
  (void)getrlimit(RLIMIT_NOFILE, &limit);
  return limit;
}
const rlimit kDescriptorLimit = LimitAtStart();

// ---- from here to RunChild(): the child's side, system calls only ----

void DefaultSignals() {
  struct sigaction action = {};
  action.sa_handler = SIG_DFL;
  for (int signal = 1; signal < NSIG; signal++) (void)sigaction(signal, &action, nullptr);  // some can't be set
  sigset_t none;
  sigemptyset(&none);
  (void)sigprocmask(SIG_SETMASK, &none, nullptr);
}

// They are all close-on-exec anyway; closed now, they do not hold other threads' files and peers that long.
void CloseOtherDescriptors() {
#ifdef SYS_close_range
  (void)syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, 0);
#endif
}

// Makes `target` the same open file as `fd`, or closes it when there is none.
void MoveTo(TFd fd, int target) {
  if (!fd.IsOpen()) {
    close(target);
  } else if (fd.Get() == target) {
    (void)fcntl(fd.Release(), F_SETFD, 0);
  } else {
    (void)dup2(fd.Get(), target);
  }
}

TFd OpenInput(const char* path) {
  return TFd(open(path, O_RDONLY | O_NOCTTY | O_CLOEXEC));
}

TFd OpenOutput(const char* path) {
  struct stat status;
  const bool device = path == nullptr || (lstat(path, &status) == 0 && S_ISCHR(status.st_mode));
  if (device) return TFd(open(path == nullptr ? kNull : path, O_WRONLY | O_NOCTTY | O_CLOEXEC));
  return CreatePrivateFile(path, S_IRUSR | S_IWUSR, O_WRONLY | O_APPEND);
}

bool SamePath(const char* a, const char* b) {
  return a != nullptr && b != nullptr && strcmp(a, b) == 0;
}

void OpenStreams(const TChildStreams& streams) {
  TFd in;
  if (!SamePath(streams.in, streams.out) && !SamePath(streams.in, streams.err)) {
    in = OpenInput(streams.in == nullptr ? kNull : streams.in);
  }
  MoveTo(std::move(in), STDIN_FILENO);
  MoveTo(OpenOutput(streams.out), STDOUT_FILENO);
  if (!SamePath(streams.out, streams.err)) return MoveTo(OpenOutput(streams.err), STDERR_FILENO);
  if (dup2(STDOUT_FILENO, STDERR_FILENO) < 0) close(STDERR_FILENO);
}

bool IsShortage(int error) {
  for (const int shortage : {EMFILE, ENFILE, ENOMEM, ENOSPC, EDQUOT, EIO, ENOTDIR})  // the last: no folder is safe
    if (error == shortage) return true;
  return false;
}

// False when a shortage has kept the note away.
bool WriteNote(const char* path, int reason) {
  const char* prefix = "exec error: ";
  const char* text = strerrordesc_np(reason);
  const TFd note = CreatePrivateFile(path, S_IRUSR | S_IWUSR, O_WRONLY);
  if (!note.IsOpen()) return !IsShortage(errno);
  // A short note is a note.
  if (write(note.Get(), prefix, strlen(prefix)) >= 0 && text != nullptr)
    (void)!write(note.Get(), text, strlen(text));
  return true;
}

[[noreturn]] void RunChild(const TChildPlan& plan, char* const* environment) {
  if (plan.streams != nullptr) setsid();
  DefaultSignals();
  CloseOtherDescriptors();
  (void)setrlimit(RLIMIT_NOFILE, &kDescriptorLimit);
  if (plan.streams != nullptr) OpenStreams(*plan.streams);
  if (plan.dir != nullptr) (void)!chdir(plan.dir);

  char note[kNotePathSize];
  const bool hasNote = NotePath(plan.noteFolder, getpid(), note);
  if (hasNote) (void)unlink(note);  // left by an earlier child of that number

  int reason = 0;
  for (int attempt = 0; attempt < kBusyAttempts; attempt++) {
    execvpe(plan.argv[0], plan.argv, environment);
    reason = errno;
    if (reason != ETXTBSY) break;
    nanosleep(&kBusyPause, nullptr);
  }
  if (hasNote && !WriteNote(note, reason) && plan.noteLost != nullptr) *plan.noteLost = 1;
  _exit(plan.noteFolder == nullptr ? kShellNotFound : kExecFailed);
}

}  // namespace

pid_t StartChild(const TChildPlan& plan) {
  const auto environment = ChildEnvironment();
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);  // none of the agent's handlers runs in the child
  const pid_t pid = fork();
  if (pid == 0) RunChild(plan, environment->Entries());
  const int reason = errno;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  errno = reason;
  return pid;
}

const rlimit& DescriptorLimitAtStart() {
  return kDescriptorLimit;
}

void NoteFolder(char (&folder)[kNotePathSize]) {
  char relative[kNotePathSize];
  folder[0] = '\0';
  if (gettempfilename(relative, kNotePathSize, "") == 0) return;
  snprintf(folder, sizeof(folder), "%s", relative);
  if (relative[0] == '/') return;

  // The child may change its working directory; the note must be where the parent looks.
  char cwd[kNotePathSize];
  if (getcwd(cwd, sizeof(cwd)) == nullptr) return;
  const String absolute = String(cwd) + '/' + relative;
  if (absolute.Length() + kNoteNameSize <= kNotePathSize) absolute.StrCpy(folder, sizeof(folder));
}

bool NotePath(const char* folder, pid_t pid, char (&path)[kNotePathSize]) {
  if (folder == nullptr || folder[0] == '\0') return false;

  char digits[12];
  char* first = digits + sizeof(digits);
  *--first = '\0';
  for (pid_t rest = pid; rest > 0; rest /= 10) *--first = static_cast<char>('0' + rest % 10);

  path[0] = '\0';
  for (const char* part : {folder, "tmpStav-", static_cast<const char*>(first), ".txt"}) {
    strncat(path, part, sizeof(path) - 1 - strlen(path));
  }
  return true;
}
