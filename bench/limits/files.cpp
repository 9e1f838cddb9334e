// The least that any program has to do for the work on files, and the data that it is done on.  Each measurement
// prints its best time in microseconds.
//
//   tav_files read TIMES FILE                 read it in blocks of 256 KiB
//   tav_files read-both TIMES FILE FILE       the same of two files, in turn, 64 KiB each
//   tav_files walk TIMES FOLDER               getdents64 and fstatat over a tree
//   tav_files make-log FILE MIB               lines of a log: an "error" in every ninth, "xylograph" in the last
//   tav_files make-tree FOLDER FOLDERS FILES  that many folders with FILES small files in each

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace {

using TArguments = std::vector<std::string>;

[[noreturn]] void Fail(const std::string& what) {
  perror(what.c_str());
  exit(1);
}

int OpenOrFail(const std::string& path, int flags, int from = AT_FDCWD) {
  const int fd = openat(from, path.c_str(), flags | O_CLOEXEC, 0600);
  if (fd < 0) Fail(path);
  return fd;
}

void ReadTogether(const TArguments& paths, size_t block) {
  std::vector<char> data(block);
  std::vector<int> files;
  for (const std::string& path : paths) files.push_back(OpenOrFail(path, O_RDONLY));
  for (ssize_t got = 1; got > 0;) {
    for (const int fd : files) got = read(fd, data.data(), data.size());
  }
  for (const int fd : files) close(fd);
}

struct TEntry {  // linux_dirent64
  ino64_t inode;
  off64_t next;
  unsigned short size;
  unsigned char type;
  char name[1];
};

// Returns the bytes of the files below, so that nothing is left out by the compiler.
long long Walk(int folder) {
  alignas(TEntry) char entries[32768];
  long long bytes = 0;
  for (long n; (n = syscall(SYS_getdents64, folder, entries, sizeof entries)) > 0;) {
    for (long at = 0; at < n;) {
      const TEntry* entry = reinterpret_cast<const TEntry*>(entries + at);
      at += entry->size;
      const char* const name = entry->name;
      if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0))) continue;
      struct stat info;
      if (fstatat(folder, name, &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
      if (S_ISREG(info.st_mode)) bytes += info.st_size;
      if (S_ISDIR(info.st_mode)) bytes += Walk(OpenOrFail(name, O_RDONLY | O_DIRECTORY, folder));
    }
  }
  close(folder);
  return bytes;
}

void Measure(const TArguments& words, const std::function<void()>& work) {
  double best = 1e12;
  for (int i = atoi(words[0].c_str()); i > 0; --i) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    best =
        std::min(best, std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count());
  }
  printf("%.1f\n", best);
}

void MakeLog(const TArguments& words) {
  FILE* const file = fopen(words[0].c_str(), "w");
  if (file == nullptr) Fail(words[0]);
  const long long wanted = atoll(words[1].c_str()) << 20;
  long long written = 0;
  unsigned random = 1;
  for (long line = 0; written < wanted; ++line) {
    random = random * 1664525 + 1013904223;
    const char* text = "connection accepted, nothing out of the ordinary to be told";
    if (line % 9 == 0)
      text = line % 27 == 0 ? "Error of the peer: timeout after three attempts" : "error of no importance";
    written += fprintf(file, "2026-11-%02ld %02u:%02u:%02u host daemon[%u]: request %08x: %s\n", 1 + line % 28,
                       random >> 27 & 15, random >> 22 & 31, random >> 16 & 31, random >> 12 & 4095, random, text);
  }
  fprintf(file, "2026-11-30 23:59:59 host daemon[1]: the last line of all tells of a xylograph\n");
  if (fclose(file) != 0) Fail(words[0]);
}

void MakeTree(const TArguments& words) {
  for (int i = 0; i < atoi(words[1].c_str()); ++i) {
    const std::string folder = words[0] + "/folder" + std::to_string(i);
    if (mkdir(folder.c_str(), 0700) != 0) Fail(folder);
    const int at = OpenOrFail(folder, O_RDONLY | O_DIRECTORY);
    for (int k = 0; k < atoi(words[2].c_str()); ++k) {
      const int fd = OpenOrFail("some file of middling name " + std::to_string(k), O_CREAT | O_WRONLY, at);
      if (k % 16 == 0 && write(fd, "content", 7) != 7) Fail(folder);
      close(fd);
    }
    close(at);
  }
}

struct TCommand {
  size_t words;
  std::function<void(const TArguments&)> run;
};

const std::map<std::string, TCommand> kCommands = {
    {"read", {2, [](const TArguments& w) { Measure(w, [&] { ReadTogether({w[1]}, 256 * 1024); }); }}},
    {"read-both", {3, [](const TArguments& w) { Measure(w, [&] {
                                                  ReadTogether({w[1], w[2]}, 64 * 1024);
                                                }); }}},
    {"walk", {2, [](const TArguments& w) { Measure(w, [&] { Walk(OpenOrFail(w[1], O_RDONLY | O_DIRECTORY)); }); }}},
    {"make-log", {2, MakeLog}},
    {"make-tree", {3, MakeTree}},
};

}  // namespace

int main(int argc, char** argv) {
  const TArguments words(argv + std::min(argc, 2), argv + argc);
  const auto found = argc < 2 ? kCommands.end() : kCommands.find(argv[1]);
  if (found == kCommands.end() || found->second.words != words.size()) {
    fprintf(stderr, "usage: %s read|read-both|walk|make-log|make-tree ARGUMENT...\n", argv[0]);
    return 64;
  }
  found->second.run(words);
  return 0;
}
