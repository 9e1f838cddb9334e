#include "core/cmdline_split.h"

#include <string.h>

namespace {

bool IsQuote(char c) {
  return c == '\'' || c == '"';
}

// Length of the argument that starts at `s`, past its opening quote.
size_t QuotedLength(const char* s, char quote) {
  const char* end = strchr(s, quote);
  return end == nullptr ? strlen(s) : static_cast<size_t>(end - s);
}

}  // namespace

void SplitCommandLine(const char* cmdline, TArguments& arguments) {
  size_t used = 0;
  arguments.count = 0;
  for (const char* s = cmdline; arguments.count < kMaxArguments; arguments.count++) {
    while (*s == ' ') s++;
    if (*s == '\0') break;

    const char quote = IsQuote(*s) ? *s++ : '\0';
    const size_t length = quote != '\0' ? QuotedLength(s, quote) : 1 + strcspn(s + 1, " \t");
    if (length >= sizeof(arguments.bytes) - used) break;  // the closing zero counts

    char* copy = arguments.bytes + used;
    memcpy(copy, s, length);
    copy[length] = '\0';
    arguments.argv[arguments.count] = copy;
    used += length + 1;
    s += length;
    if (quote != '\0' && *s == quote) s++;
  }
  arguments.argv[arguments.count] = nullptr;
}
