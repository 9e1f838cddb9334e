// The lines of a message after a segmentation fault, which look as if showmessage had written them.
//
// Everything works on its arguments alone, without a lock, the heap or the C library's time and formats: safe in a
// signal handler.
#pragma once

#include <stddef.h>

// A line put together piece by piece; what does not fit is left out.
class TCrashLine {
 public:
  TCrashLine& Text(const char* text);
  // The last `digits` digits of a number that is not negative, zeros in front.
  TCrashLine& Number(long value, int digits);

  const char* Data() const { return line; }
  size_t Size() const { return size; }

 private:
  char line[160] = {};
  size_t size = 0;
};

// The time is given in seconds since the beginning of 1970, both in local time.
TCrashLine ConsoleLine(long localSeconds, const char* text);  // [tav][hh:mm:ss]...
TCrashLine LogLine(long localSeconds, const char* text);      // [mm/dd/yyyy hh:mm:ss]...
