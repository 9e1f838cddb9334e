#include "core/assertion.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

void AssertionFailure(const char* expression, const char* source, int line, const char* function) {
  fflush(stdout);  // what was printed before comes first
  fprintf(stderr, "%s: %s:%d: %s: Assertion `%s' failed.\n", program_invocation_short_name, source, line, function,
          expression);
  abort();
}
