// The way up for diagnostic lines of the lower layers: they call Diag(), the agent decides what becomes of it.
//
// The sink is set once, before the first thread, and called from any thread.
#pragma once

#include <netinet/in.h>

// `text` is a whole line with its line end; `peer` the IPv4 address it concerns, in network order.
using TDiagSink = void (*)(const char* text, in_addr peer);
// Tells whether anybody wants detailed lines now; asked before a line is formatted.
using TDiagWanted = bool (*)();

void SetDiagSink(TDiagSink sink, TDiagWanted wanted);

// Formats and hands over one detailed diagnostic line (at most 512 bytes); does nothing when nobody wants it.
void Diag(in_addr peer, const char* format, ...) __attribute__((format(printf, 2, 3)));
