// Objects that let go of what they hold: a descriptor, a stdio stream, a directory stream.
//
// Each owns one handle, moves but does not copy, and closes it when it goes away.
#pragma once

#include <dirent.h>
#include <stdio.h>
#include <unistd.h>

#include <memory>
#include <utility>

class TFd {
 public:
  TFd() = default;
  explicit TFd(int descriptor) : fd(descriptor) {}
  TFd(TFd&& other) noexcept : fd(other.Release()) {}
  TFd& operator=(TFd&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  ~TFd() { Reset(); }

  int Get() const { return fd; }
  bool IsOpen() const { return fd >= 0; }
  // The caller owns the descriptor from here on.
  int Release() { return std::exchange(fd, -1); }
  void Reset(int descriptor = -1) {
    if (fd >= 0) close(fd);  // EINTR included: Linux has closed it then
    fd = descriptor;
  }

 private:
  int fd = -1;
};

struct TFileCloser {
  void operator()(FILE* f) const { fclose(f); }
};
using TFile = std::unique_ptr<FILE, TFileCloser>;

struct TDirCloser {
  void operator()(DIR* d) const { closedir(d); }
};
using TDir = std::unique_ptr<DIR, TDirCloser>;
