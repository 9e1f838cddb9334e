#include "core/process.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/childstart.h"
#include "core/childwait.h"
#include "core/clock.h"
#include "core/cmdline_split.h"
#include "core/tempfile.h"

namespace {

constexpr long long kLookMs = 1000;
constexpr int kNoWait = -1;
constexpr int kNoteLineSize = 256;  // a line of 255 bytes

// A word that a child can set until it execs.  Without memory there is none.
class TSharedWord {
 public:
  TSharedWord() : page(mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {}
  ~TSharedWord() {
    if (page != MAP_FAILED) munmap(page, sizeof(int));
  }
  TSharedWord(const TSharedWord&) = delete;
  TSharedWord& operator=(const TSharedWord&) = delete;

  volatile int* Word() const { return page == MAP_FAILED ? nullptr : static_cast<volatile int*>(page); }
  bool IsSet() const { return page != MAP_FAILED && *Word() != 0; }

 private:
  void* const page;
};

// Where a child leaves the reason why it could not be executed.
struct TNotes {
  char folder[kNotePathSize];
  TSharedWord lost;  // the child could not leave it
};

// The whole group that the child leads.  A child that has not come to lead one yet is still alone.
bool Kill(pid_t pid) {
  return kill(-pid, SIGKILL) == 0 || kill(pid, SIGKILL) == 0;
}

// False when a child past its time can't be killed.
bool WaitWithin(TChildWatch& child, int timeout) {
  if (timeout == 0) return child.WaitEnd(-1);

  const long long start = MonotonicSeconds();
  while (!child.WaitEnd(0)) {
    const bool late = (MonotonicSeconds() - start) * 1000 > timeout;
    if (late && !Kill(child.Child())) return false;
    if (child.WaitEnd(kLookMs)) break;
  }
  return true;
}

void FirstLine(const char* path, char (&line)[kNoteLineSize]) {
  const TFd note = OpenPrivateFile(path);
  ssize_t size = 0;
  do {
    size = note.IsOpen() ? read(note.Get(), line, sizeof(line) - 1) : 0;
  } while (size < 0 && errno == EINTR);
  if (size <= 0) size = snprintf(line, sizeof(line), "exec error");
  line[size] = '\0';
  line[strcspn(line, "\n")] = '\0';
}

// True when a child that ended with the status of a failed exec has left its note; the note is deleted.  What
// another user may have put there is not believed.
bool TakeNote(int exitStatus, const TNotes& notes, pid_t pid, String& text) {
  char path[kNotePathSize];
  struct stat status;
  if (exitStatus != kExecFailed || !NotePath(notes.folder, pid, path)) return false;
  if (notes.lost.IsSet()) {
    text = "exec error";
    return true;
  }
  if (lstat(path, &status) != 0) {
    if (errno == ENOENT) return false;
    status.st_mode = 0;  // it cannot be looked at
  } else if (!S_ISREG(status.st_mode) || status.st_uid != geteuid()) {
    return false;
  }
  char line[kNoteLineSize];
  FirstLine(path, line);
  (void)unlink(path);  // before the text, for which memory may be short
  text = line;
  return true;
}

int AnswerWithoutWaiting(TChildWatch& child, const TNotes& notes, int& exitcode, String& error) {
  exitcode = 0;
  if (!child.WaitEnd(kLookMs)) {
    LeaveChild(child.Child());
    return 1;
  }
  String note;
  const int exitStatus = WEXITSTATUS(child.Status());  // 0 for one that a signal ended
  if (TakeNote(exitStatus, notes, child.Child(), note)) {
    error = "exec error";
    return 0;
  }
  exitcode = exitStatus;
  return 1;
}

int AnswerEnd(int status, const TNotes& notes, pid_t pid, int& exitcode, String& error) {
  if (WTERMSIG(status) != 0) {
    char path[kNotePathSize];
    if (NotePath(notes.folder, pid, path)) (void)unlink(path);  // it may have been writing one when it was killed
    error = "abnormal termination";
    return 0;
  }
  if (TakeNote(WEXITSTATUS(status), notes, pid, error)) return 0;

  exitcode = WEXITSTATUS(status);
  return 1;
}

}  // namespace

int SystemEx2(const char* cmdline, const char* dir, const char* infile, const char* outfile, const char* errfile,
              int timeout, int& exitcode, String& error) {
  error = "";
  TArguments arguments;
  SplitCommandLine(cmdline, arguments);
  if (arguments.count == 0) {
    error = String("exec error: ") + strerrordesc_np(ENOENT);  // as for a program without a name
    return 0;
  }

  TNotes notes;
  NoteFolder(notes.folder);
  const TChildStreams streams = {infile, outfile, errfile};
  TChildPlan plan;
  plan.argv = arguments.argv;
  plan.dir = dir;
  plan.streams = &streams;
  plan.noteFolder = notes.folder;
  plan.noteLost = notes.lost.Word();

  const pid_t pid = StartChild(plan);
  if (pid < 0) {
    error = "fork error";
    return 0;
  }
  TChildWatch child(pid);
  if (timeout == kNoWait) return AnswerWithoutWaiting(child, notes, exitcode, error);
  if (!WaitWithin(child, timeout)) {
    LeaveChild(pid);
    error = "cannot terminate process";
    return 0;
  }
  return AnswerEnd(child.Status(), notes, pid, exitcode, error);
}

int SystemEx(const char* cmdline, const char* dir, int timeout, int& exitcode, String& error) {
  return SystemEx2(cmdline, dir, nullptr, nullptr, nullptr, timeout, exitcode, error);
}

int RunShell(const char* command) {
  char shell[] = "/bin/sh", option[] = "-c";
  char* const argv[] = {shell, option, const_cast<char*>(command), nullptr};  // exec only reads it
  TChildPlan plan;
  plan.argv = argv;

  const pid_t pid = StartChild(plan);
  if (pid < 0) return -1;
  TChildWatch child(pid);
  (void)child.WaitEnd(-1);  // without limit, so it has ended
  return child.Status();
}

void ReapChildren() {
  ReapLeftChildren();
}
