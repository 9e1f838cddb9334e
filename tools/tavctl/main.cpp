// tavctl: the command-line client.
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <exception>

#include "tavctl/run.h"

namespace {

bool ColourWanted(const TOptions& options, int fd) {
  const char* noColour = getenv("NO_COLOR");
  const char* terminal = getenv("TERM");
  if (options.noColour || (noColour != nullptr && *noColour != '\0')) return false;
  return isatty(fd) != 0 && (terminal == nullptr || strcmp(terminal, "dumb") != 0);
}

TView ViewOf(const TOptions& options) {
  TView view;
  view.format = options.format;
  view.colour = ColourWanted(options, STDOUT_FILENO);
  view.errColour = ColourWanted(options, STDERR_FILENO);
  view.quiet = options.quiet;
  view.verbose = options.verbose;
  return view;
}

}  // namespace

int main(int argc, char** argv) {
  TInvocation invocation;
  TFailure failure;
  try {
    if (!ParseCommandLine(argc, argv, invocation, failure))
      return ReportFailure(ViewOf(invocation.options), "", failure);
    return invocation.row == nullptr ? 0 : Run(invocation, ViewOf(invocation.options));
  } catch (const std::exception& fault) {
    Fail(failure, TKind::kInternal, fault.what());
    return ReportFailure(ViewOf(invocation.options), "", failure);
  }
}
