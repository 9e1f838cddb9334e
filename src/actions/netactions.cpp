#include "actions/netactions.h"

#include "core/requester.h"
#include "net/syncsocket.h"
#include "net/syslogsender.h"
#include "protocol/parameters.h"
#include "protocol/readparam.h"
#include "protocol/results.h"

namespace {

constexpr const char* kSyslogTag = "ZO TAV";

struct TSendOrder {
  String host;
  int port = 0;
  int kind = TSyncSocket::kUDP;
  String first;
  int delaySeconds = 0;
  String second;
};

struct TSyslogOrder {
  String server;
  int port = 0;
  int facility = 0;
  TSyslogSeverity severity = 0;
  String message;
};

bool ReadSendOrder(const BVRequest& request, TSendOrder& order) {
  namespace at = params::send;
  order.host = ReadText(request, at::kHost);
  if (ReadText(request, at::kKind) == "0") order.kind = TSyncSocket::kTCP;
  order.first = ReadLines(request, at::kFirst);
  order.second = ReadLines(request, at::kSecond);
  return order.host.Length() > 0 && order.first.Length() > 0 && ReadNumber(request, at::kPort, order.port) &&
         ReadNumber(request, at::kDelayS, order.delaySeconds);
}

bool ReadSyslogOrder(const BVRequest& request, TSyslogOrder& order) {
  namespace at = params::syslog;
  order.server = ReadText(request, at::kServer);
  order.message = ReadLines(request, at::kMessage);
  return order.server.Length() > 0 && ReadNumber(request, at::kPort, order.port) &&
         ReadNumber(request, at::kFacility, order.facility) && ReadNumber(request, at::kSeverity, order.severity) &&
         order.severity >= 0 && order.severity <= 7;
}

}  // namespace

void ProcessAct_TCPSend(const BVRequest& request, TAVReply& reply) {
  TSendOrder order;
  if (!ReadSendOrder(request, order)) return Answer(reply, kWrongParameter, "Wrong parameter");

  TSyncSocket socket(order.kind);
  if (socket.Connect(order.host.CStr(), order.port, 0) != kNetDone) {
    return Answer(reply, kNotExamined, socket.Error());
  }
  if (socket.SendString(order.first, 0) <= 0) return Answer(reply, kNotExamined, socket.Error());
  if (order.second.Length() > 0) {
    if (!SleepUnlessGone(order.delaySeconds * 1000000LL)) return;
    (void)socket.SendString(order.second, 0);  // the answer speaks of the first data
  }
  Answer(reply, kDone, "Data has been sent");
}

void ProcessAct_Syslog(const BVRequest& request, TAVReply& reply) {
  TSyslogOrder order;
  if (!ReadSyslogOrder(request, order)) return Answer(reply, kWrongParameter, "Wrong parameter");

  String error;
  const int sent = SendToSysLog(order.server.CStr(), order.port, order.facility, order.severity, kSyslogTag,
                                order.message, error);
  if (sent == 0) return Answer(reply, kNotExamined, error);
  Answer(reply, kDone, String("Syslog: Data to ") + order.server + " has been sent");
}
