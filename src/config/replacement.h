// Puts a new file in an old one's place so that a crash, a kill or a full disk at any moment leaves the path with
// the old or the new content, whole, and never without a file.
//
// The new content is written beside the old file as path + ".New"; the old one stays as path + ".Old".  One object
// belongs to one thread, and one replacement of a file goes on at a time.
#pragma once

#include <sys/types.h>

#include "core/closers.h"
#include "core/inputfile.h"
#include "core/zostring.h"

class TReplacement {
 public:
  explicit TReplacement(const char* path);
  ~TReplacement();  // removes a new file that was not finished
  TReplacement(const TReplacement&) = delete;
  TReplacement& operator=(const TReplacement&) = delete;

  const String& NewName() const { return newName; }

  // Creates the new file as private as the old one: its owner, its mode, its access list.
  bool Create(const TInputFile& old);
  // A failed write shows in Finish().
  void Write(const char* bytes, int n);
  // True when every byte has reached the disk; else the new file is gone.
  bool Finish();
  // Keeps the old content as ".Old" if that can be done, and moves the finished file to the path.  When the move
  // fails the path keeps the old content and the new file stays under its own name.  Where the path is a symbolic
  // link, it is the link that becomes ".Old".
  bool Install(TInputFile& old);

 private:
  bool Flush();
  bool KeepOld(TInputFile& old);
  bool CopyFrom(TInputFile& old);

  String path, newName;
  TFd file;
  bool unfinished = false;  // the new file is there and has not got its place
  bool failed = false;
  int used = 0;
  char buffer[4096];
};
