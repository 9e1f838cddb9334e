// Host names to IPv4 addresses, and addresses to text.
//
// Addresses are in network order.  Any number of threads may be in here at once: all calls below are reentrant and
// no lock is held, so a slow name server holds up only who asked.
#pragma once

#include <netinet/in.h>

#include "core/zostring.h"
#include "net/netresults.h"

// The dotted text, cut to size - 1 characters and always terminated.  Returns `buffer`.
char* inet_ntoa_safe(in_addr address, char* buffer, int size);
String IP2String(in_addr address);

// A dotted address in any form that inet_addr takes ("10.1" is 10.0.0.1), else a name to look up.  Returns kNetDone
// and sets `address`, or kNetNoHost with the reason in `error`.  Blocks for as long as the system's resolver does.
int GetHostIP(const char* host, in_addr& address, String& error);
// The same, as a socket address.  Of the port the low 16 bits count.
int GetHostAddress(const char* host, int port, sockaddr_in& address, String& error);

// The address that this machine's own name resolves to; 0.0.0.0 when it does not.
in_addr GetMyIP();
