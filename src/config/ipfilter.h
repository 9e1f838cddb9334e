// Who may connect and who may manage: the two address checks.
//
// An address list is items separated by commas; an item is one dotted IPv4 address or two joined by a hyphen, in
// either order.  All functions work on their arguments alone; any thread.
#pragma once

#include <netinet/in.h>

#include "core/zostring.h"

bool islistsetchar(char c);  // digits, '.', '-' and ','

// Takes the next item off the front of `work`.  `from` and `to` come in host order: from = 0 means no further item,
// to = 0 a single address.  Text that is no address gives `error`; where it stands first, nothing is taken off.
void getitem(String& work, in_addr_t& from, in_addr_t& to, String& error);

// 1 when the address is in the list.  `error` names the first thing wrong with the list and changes nothing.
int IPAllowed(in_addr address, const String& list, String& error);
int IPAllowed(const char* address, const String& list, String& error);  // 0 when the text is no address

// The connection filter: true when the peer's dotted text stands anywhere in `activefilter`.  A plain substring, so
// an address that begins an allowed one passes too; the installed filters rely on it.
bool PassesFilter(in_addr peer, const String& activefilter);
