// A file that is read by its name and can't hold the reader up, whatever the name turns out to be.
//
// A FIFO or a socket counts as a file that can't be opened.  A character device counts as open, but is never
// touched (opening one may already act on the hardware, reading one may wait for ever): every read fails.  A folder
// opens and its reads fail.  One object belongs to one thread.
#pragma once

#include <stddef.h>

#include "core/closers.h"

class TInputFile {
 public:
  // Closes what was open before.  False, with errno set, when the file can't be opened for reading.
  bool Open(const char* path);
  // Fills the buffer; fewer bytes than `size` come only at the end of the file.  Returns the bytes, -1 on an error.
  long long Read(void* buffer, size_t size);
  // Goes to a byte offset from the start.
  bool Seek(long long offset);
  // -1 when nothing is open, and for a character device.
  int Descriptor() const { return fd.Get(); }

 private:
  TFd fd;
};
