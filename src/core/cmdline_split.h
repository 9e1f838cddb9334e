// Splits a command line into the arguments of a program.  No shell: nothing is expanded or redirected.
//
//   line     := { blank } { argument { blank } }
//   argument := "'" { any but "'" } [ "'" ]  |  '"' { any but '"' } [ '"' ]      (quotes dropped, no escapes)
//             | any { any but blank or tab }
//
// A tab ends an argument but does not part two: it becomes the first byte of the next.
#pragma once

inline constexpr int kMaxArguments = 23;
inline constexpr int kArgumentsSize = 1024;  // of all arguments, each with its closing zero

struct TArguments {
  int count = 0;
  char* argv[kMaxArguments + 1];  // into `bytes`; closed by a null pointer
  char bytes[kArgumentsSize];

  TArguments() = default;
  TArguments(const TArguments&) = delete;
  TArguments& operator=(const TArguments&) = delete;
};

// Stops without notice after 23 arguments and before the first one that does not fit any more.
void SplitCommandLine(const char* cmdline, TArguments& arguments);
