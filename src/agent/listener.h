// The listening socket.
#pragma once

#include "core/closers.h"
#include "core/zostring.h"

inline constexpr int kListenAttempts = 3;

// Opens the listening socket on the host and port in force; up to three attempts, a second apart.  The reason in
// `error`.
TFd Listen(String& error);

// One attempt.  `host` is an address or a name to look up, which blocks for as long as a name server is silent;
// empty means every interface.  The socket is closed when the port can't be opened, for want of memory too.  Never
// throws; any thread.
TFd TryListening(const String& host, int port, String& error);
