#include "core/diag.h"

#include <stdarg.h>
#include <stdio.h>

namespace {

TDiagSink diagSink = nullptr;
TDiagWanted diagWanted = nullptr;

}  // namespace

void SetDiagSink(TDiagSink sink, TDiagWanted wanted) {
  diagSink = sink;
  diagWanted = wanted;
}

void Diag(in_addr peer, const char* format, ...) {
  if (diagSink == nullptr || !diagWanted()) return;

  char line[512];
  va_list args;
  va_start(args, format);
  vsnprintf(line, sizeof line, format, args);
  va_end(args);
  diagSink(line, peer);
}
