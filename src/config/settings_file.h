// Reading the configuration file, a line at a time.
//
//   file    = { line LF }
//   line    = ( "#" | ";" ) anything | key "=" value | anything without "="
//   key     = blanks and tabs around it do not count, nor does the case of ASCII letters
//   value   = from the first byte that is no blank or tab, without blanks, tabs, CR and LF at its end
//
// Lines are read into 1024 bytes: a longer one comes in pieces of 1023 bytes, each a line of its own.  A NUL ends
// what counts of a line.  One object belongs to one thread.
#pragma once

#include "core/inputfile.h"
#include "core/zostring.h"

inline constexpr int kSettingsLineSize = 1024;  // with the closing NUL

// Tells the key from the value.  Returns the value's first byte within `line` and sets `key` (lowered, without
// blanks); null for a comment and for a line without "=".
char* SplitSettingsLine(char* line, String& key);
// The value without what trails it.
String SettingsLineValue(const char* value);

class TSettingsFile {
 public:
  TSettingsFile() = default;
  ~TSettingsFile();  // wipes: a line holds the password

  // False when the file cannot be opened; never hangs.
  bool Open(const char* path) { return file.Open(path); }
  // The next line or piece, null-terminated, with its line end; it may be changed within its 1024 bytes and is good
  // until the next call.  Null at the end and after a read error.
  char* NextLine();
  bool Failed() const { return failed; }
  // The file itself, to be read or examined otherwise.
  TInputFile& Input() { return file; }

 private:
  bool Fill();

  TInputFile file;
  bool failed = false;
  int next = 0, filled = 0;
  char block[2048];
  char line[kSettingsLineSize];
};
