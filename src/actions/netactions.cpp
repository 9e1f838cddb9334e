#include "actions/netactions.h"

#include "core/requester.h"
#include "net/syncsocket.h"
#include "net/syslogsender.h"
#include "protocol/results.h"
#include "protocol/tav_const.h"

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

bool ReadInt(const BVRequest& request, int n, int& value) {
  return tavDecodeInt(request.GetParam(n, 1), &value) != 0;
}

bool ReadSendOrder(const BVRequest& request, TSendOrder& order) {
  order.host = request.GetParam(1, 1);
  if (request.GetParam(3, 1) == "0") order.kind = TSyncSocket::kTCP;
  order.first = tavDecodeStrings(request.GetParam(4, 1));
  order.second = tavDecodeStrings(request.GetParam(6, 1));
  return order.host.Length() > 0 && order.first.Length() > 0 && ReadInt(request, 2, order.port) &&
         ReadInt(request, 5, order.delaySeconds);
}

bool ReadSyslogOrder(const BVRequest& request, TSyslogOrder& order) {
  order.server = request.GetParam(1, 1);
  order.message = tavDecodeStrings(request.GetParam(5, 1));
  return order.server.Length() > 0 && ReadInt(request, 2, order.port) && ReadInt(request, 3, order.facility) &&
         ReadInt(request, 4, order.severity) && order.severity >= 0 && order.severity <= 7;
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
