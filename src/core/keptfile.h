// A file at a guessable name that is told from any other that may take its name.
#pragma once

#include <sys/types.h>

#include "core/closers.h"
#include "core/zostring.h"

// Made here and kept open.  It counts as a temporary file (core/tempregister.h) and is removed with the object. One
// thread at a time.
class TKeptFile {
 public:
  TKeptFile() = default;
  TKeptFile(const TKeptFile&) = delete;
  TKeptFile& operator=(const TKeptFile&) = delete;
  ~TKeptFile() { Remove(); }

  // False when the file can't be made; what another left under the name is gone then all the same.
  bool Make(const String& name);
  // Deletes the file; nothing when there is none.
  void Remove();
  bool Write(const char* bytes, int n);
  bool SetMode(mode_t mode);
  // True while the path leads to the very file that was made.
  bool IsInPlace();
  // Keeps it open for reading only: what is open for writing can't be executed.  False when the path leads
  // elsewhere.
  bool CloseForWriting();

  bool Made() const { return made; }
  const char* Path() { return path.CStr(); }

 private:
  String path;
  TFd file;
  bool made = false;
};
