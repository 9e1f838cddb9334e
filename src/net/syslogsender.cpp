#include "net/syslogsender.h"

#include <stdio.h>

#include "net/resolver.h"
#include "net/sockets.h"

namespace {

constexpr const char* kMonths[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// A facility beyond all reason wraps around, as the server that chose it would reckon.
int Priority(int facility, TSyslogSeverity severity) {
  return static_cast<int>(static_cast<unsigned>(facility) * 8U + static_cast<unsigned>(severity));
}

}  // namespace

String CDateTime() {
  const time_t now = time(nullptr);
  tm local = {};
  localtime_r(&now, &local);
  return CDateTime(local);
}

String CDateTime(const tm& local) {
  char text[64];
  snprintf(text, sizeof text, "%2.2d %2.2d:%2.2d:%2.2d", local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
  if (text[0] == '0') text[0] = ' ';
  return String(kMonths[local.tm_mon]) + text;
}

int SendToSysLog(const char* server, int port, int facility, TSyslogSeverity severity, const char* tag,
                 const String& message, String& error) {
  char priority[16];
  snprintf(priority, sizeof priority, "<%d>", Priority(facility, severity));
  String datagram(priority);
  datagram += CDateTime();
  datagram += ' ';
  datagram += IP2String(GetMyIP());
  datagram += ' ';
  datagram += tag;
  datagram += ": ";
  datagram += message;
  return SendReceiveUDPPacket(server, port, 0, datagram.Data(), nullptr, datagram.Length(), 0, error);
}
