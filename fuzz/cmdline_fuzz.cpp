// A command line is split as a plain walk over it splits it, within its 23 arguments and 1024 bytes.
#include "core/cmdline_split.h"
#include "fuzz/law.h"

TAV_LAWS(cmdline)(std::string input) {
  std::string rest = input.c_str();
  TArguments arguments;
  SplitCommandLine(rest.c_str(), arguments);
  size_t room = 1024;
  int count = 0;
  for (; count < 23; count++) {
    rest.erase(0, rest.find_first_not_of(' '));
    if (rest.empty()) break;
    const bool quoted = rest[0] == '\'' || rest[0] == '"';
    const size_t end = quoted ? rest.find(rest[0], 1) : rest.find_first_of(" \t", 1);
    const std::string argument = rest.substr(quoted, end == std::string::npos ? end : end - quoted);
    if (argument.size() + 1 > room) break;
    room -= argument.size() + 1;
    Require(count < arguments.count && arguments.argv[count] == argument);
    rest.erase(0, end == std::string::npos ? end : end + quoted);
  }
  Require(arguments.count == count && arguments.argv[count] == nullptr);
}
