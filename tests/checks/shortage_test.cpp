// Every test of files while one system call after the other fails: the right answer or none.
#include <dirent.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdarg.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "checks/countfiles.h"
#include "checks/filecompare.h"
#include "checks/filetests.h"
#include "checks/infolists.h"
#include "checks/textlog.h"
#include "tests/checks/replies.h"

std::function<void(size_t)> whenRead;

namespace {

enum { kOpen = 1, kExamine = 2, kRead = 4, kList = 8, kNever = 16 };  // what is never interrupted

struct TFault {
  int error, calls;
  bool typed;    // folders tell the types of their entries
  int left = 0;  // the call of these that brings it to 0 fails; 0: none
};
TFault fault;

bool Fails(int call) {
  if (!(fault.calls & call) || fault.left == 0 || --fault.left > 0) return false;
  errno = fault.error;
  return true;
}

template <class... T>
int Call(int kind, long number, T... arguments) {
  return Fails(kind) ? -1 : static_cast<int>(syscall(number, arguments...));
}

}  // namespace

// These stand before the library's.
#define LAST_ARGUMENT(type, name, before) \
  va_list rest;                           \
  va_start(rest, before);                 \
  const type name = va_arg(rest, type);   \
  va_end(rest)

extern "C" {
int fstatat(int folder, const char* path, struct stat* status, int flags) noexcept {
  return Call(kExamine, SYS_newfstatat, folder, path, status, flags);
}
int stat(const char* path, struct stat* status) noexcept {
  return fstatat(AT_FDCWD, path, status, 0);
}
int lstat(const char* path, struct stat* s) noexcept {
  return fstatat(AT_FDCWD, path, s, AT_SYMLINK_NOFOLLOW);
}
int fstat(int fd, struct stat* status) noexcept {
  return Call(kNever, SYS_fstat, fd, status);
}
int faccessat(int folder, const char* path, int mode, int) noexcept {
  return Call(kExamine, SYS_faccessat, folder, path, mode);
}
int openat(int folder, const char* path, int flags, ...) {
  LAST_ARGUMENT(int, mode, flags);
  return Call(kOpen, SYS_openat, folder, path, flags, mode);
}
int __openat64_2(int folder, const char* path, int flags) {
  return openat(folder, path, flags, 0);
}
int open(const char* path, int flags, ...) {
  LAST_ARGUMENT(int, mode, flags);
  return openat(AT_FDCWD, path, flags, mode);
}
int fcntl(int fd, int command, ...) {
  LAST_ARGUMENT(long, argument, command);
  return Call(kNever, SYS_fcntl, fd, command, argument);
}
dirent* readdir(DIR* stream) {
  static const auto real = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir64"));
  dirent* entry = Fails(kList) ? nullptr : real(stream);
  if (entry && !fault.typed) entry->d_type = DT_UNKNOWN;
  return entry;
}
ssize_t Read(int fd, void* buffer, size_t size) __asm__("read");  // the name itself may be an inline function
ssize_t Read(int fd, void* buffer, size_t size) {
  const int n = Call(kRead, SYS_read, fd, buffer, size);
  if (n >= 0 && whenRead) whenRead(static_cast<size_t>(n));
  return n;
}
unsigned sleep(unsigned) {
  return 0;
}
}

namespace {

TEST(Shortage, GivesTheRightAnswerOrNone) {
  const TTree tree;
  const std::string& dir = tree.path;
  std::string deep = "deep/", log = dir + "log";
  for (const char* name : {"deep/", "new/", "new/sub/"}) tree.Add(name);
  for (int level = 0; level < 40; level++) tree.Add(deep += level % 2 ? "d/" : "l/"), tree.Add(deep + "a.b", "xyz");
  for (const char* name : {"a.log", "b.log", "a1", "new/c.log", "new/sub/d.log"}) tree.Add(name, "abc");
  tree.Add("log", "hit\nhit\nhit\n"), tree.Add("a[1]", "abcde");
  const std::string no = "0\n", yes = "1\n", same = dir + "a.log\n" + dir + "b.log\n";
  const std::string state = log + "\n0\n1\n1\n0\nhit\n0\n0\n0\n0\n", blanks(6, '\n');
  for (const char* name : {"a.log", "new/c.log"}) tree.Add(name, "abc", 4000000000);
  for (const char* name : {"b.log", "new/"}) tree.Add(name, "abc", 4000000000);
  const struct {
    void (*handler)(const BVRequest&, TAVReply&);
    std::string parameters;
  } rows[] = {
      {ProcessTest_FolderSize, dir + "deep\n1\n"},
      {ProcessTest_FolderSize, dir + "*.log\n1\n"},
      {ProcessTest_FolderSize, "*.log\n1\n"},
      {ProcessTest_FolderSize, dir + "%newestfolder%\n1\n" + blanks.substr(1) + yes},
      {ProcessTest_CountFiles, dir + "deep\n*\n1\n0\n0\n"},
      {ProcessTest_CountFiles, dir + "deep\n*\n1\n3\n1\n"},
      {ProcessTest_CountFiles, dir + "\n*\n0\n2\n60\n"},
      {ProcessTest_CountFiles, dir + "%newestfolder%\n*\n1\n5\n0\n" + blanks.substr(1) + yes},
      {ProcessTest_FileExists, dir + "a[1]\n"},
      {ProcessTest_FileExists, dir + "a*\n"},
      {ProcessTest_FileExists, dir + "%newestfolder%/%newestfile%" + blanks + yes},
      {ProcessTest_FileCRC, log + "\n"},
      {ProcessTest_FileCompare, "1\n" + same + "1\n1\n1\n"},
      {ProcessTest_FileCompare, "1\n" + dir + "%newestfile%\n" + log + "\n1\n0\n0\n" + blanks.substr(1) + yes},
      {ProcessTest_FileCompare, "2\n" + same},
      {ProcessTest_FileCompare, "3\n" + log + "\nit\n0\n0\n"},
      {ProcessTest_TextLog2, state + blanks.substr(1) + no},
      {ProcessTest_TextLog2, dir + "%oldestfile%" + state.substr(log.size()) + blanks.substr(1) + yes},
      {ProcessTest_TextLog2, dir + "a*" + state.substr(log.size())},
      {ProcessInfo_GetFileList, dir + "\n\n1\n1\n1\n1\n1\n1\n1\n"},
      {ProcessInfo_GetFileList, dir + "new\n\n1\n1\n1\n1\n1\n1\n1\n"},
  };
  {
    TLock lock(optmutex);
    TAVSettings.foldersize = TAVSettings.fileexists = TAVSettings.filecrc = 1;
  }
  const std::filesystem::path here = std::filesystem::current_path();
  std::filesystem::current_path(dir);
  for (const TFault& kind : {TFault{EMFILE, 31, true}, TFault{ENOMEM, 31, false}, TFault{EIO, kList, true},
                             TFault{EINTR, kOpen | kExamine | kRead | kList, false}}) {
    for (const auto& row : rows) {
      fault = kind;
      const std::string right = ReplyOf(row.handler, row.parameters);
      EXPECT_EQ("200\n", right.substr(0, 4)) << row.parameters;
      const int lowest = dup(0);
      close(lowest);
      for (int n = 1; n < 5000; n++) {
        fault.left = n;
        const std::string reply = ReplyOf(row.handler, row.parameters);
        if (std::exchange(fault.left, 0) > 0) break;
        const bool refused = kind.error != EINTR && reply.substr(0, 4) == "301\n";
        EXPECT_TRUE(reply == right || refused) << row.parameters << strerror(kind.error) << " " << n << "\n"
                                               << reply;
      }
      EXPECT_EQ(lowest, dup(0)) << "a descriptor stays: " << row.parameters;
      close(lowest);
    }
  }
  fault.typed = true;
  std::filesystem::current_path(here);
}

}  // namespace
