// Messages to a syslog server, one UDP datagram each, in the classic BSD layout (RFC 3164):
//
//   <facility * 8 + severity>time stamp own address tag: message
//
// Any thread.
#pragma once

#include <time.h>

#include "core/zostring.h"

// 0 emergency, 1 alert, 2 critical, 3 error, 4 warning, 5 notice, 6 informational, 7 debug.
using TSyslogSeverity = int;

// The local time, now or as given: "Nov15 10:45:03", "Nov 5 10:45:03".  RFC 3164 would have a blank before a
// two-digit day as well; the servers are used to this form.
String CDateTime();
String CDateTime(const tm& local);

// Returns the number of bytes sent or a code of netresults.h, with the reason in `error`.  No answer is waited for.
int SendToSysLog(const char* server, int port, int facility, TSyslogSeverity severity, const char* tag,
                 const String& message, String& error);
