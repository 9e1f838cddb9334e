#include "checks/nettests.h"

#include <algorithm>

#include "core/clock.h"
#include "core/requester.h"
#include "net/sockets.h"
#include "protocol/results.h"
#include "protocol/tav_const.h"

namespace {

constexpr int kLargestAnswer = 8192;
constexpr int kDefaultTimeoutMs = 120000;

struct TProbe {
  String host;
  int port = 0;
  int timeout = 0;   // milliseconds for TCP, seconds for UDP
  int attempts = 1;  // UDP alone
  String data;
  int receiveSize = 0;
};

struct TOutcome {
  int result = 0;
  int elapsedMs = 0;
  String answer;
  String error;
};

bool ReadInt(const BVRequest& request, int n, int& value) {
  return tavDecodeInt(request.GetParam(n, 1), &value) != 0;
}

bool ReadSize(const BVRequest& request, int n, int& size) {
  if (!ReadInt(request, n, size)) return false;
  size = std::min(size, kLargestAnswer);
  return true;
}

bool ReadTCPProbe(const BVRequest& request, TProbe& probe) {
  probe.host = request.GetParam(1, 1);
  if (!ReadInt(request, 2, probe.port) || !ReadInt(request, 3, probe.timeout)) return false;
  if (probe.timeout == 0) probe.timeout = kDefaultTimeoutMs;
  probe.data = tavDecodeStrings(request.GetParam(4, 1));
  return ReadSize(request, 5, probe.receiveSize);
}

bool ReadUDPProbe(const BVRequest& request, TProbe& probe) {
  probe.host = request.GetParam(1, 1);
  if (!ReadInt(request, 2, probe.port) || !ReadInt(request, 3, probe.timeout)) return false;
  probe.timeout /= 1000;
  if (probe.timeout == 0) probe.timeout = 1;
  if (!ReadInt(request, 4, probe.attempts) || probe.attempts == 0) return false;
  probe.data = tavDecodeStrings(request.GetParam(5, 1));
  return probe.data.Length() > 0 && ReadSize(request, 6, probe.receiveSize);
}

using TExchange = int (*)(const char* host, int port, int timeout, const char* sendBuffer, char* receiveBuffer,
                          int sendLength, int receiveSize, String& error);

TOutcome Try(TExchange exchange, TProbe& probe) {
  TOutcome outcome;
  outcome.answer.SetLength(probe.receiveSize);
  const long long startUs = MonotonicUs();
  outcome.result = exchange(probe.host.CStr(), probe.port, probe.timeout, probe.data.Data(), outcome.answer.Data(),
                            probe.data.Length(), probe.receiveSize, outcome.error);
  outcome.elapsedMs = ReportedMs(startUs, MonotonicUs());
  outcome.answer.SetLength(probe.receiveSize > 0 ? std::max(outcome.result, 0) : 0);
  return outcome;
}

void Report(const TOutcome& outcome, TAVReply& reply) {
  if (outcome.result > 0) {
    reply.SetResult(kDone);
    reply.AddIntParam(outcome.elapsedMs);
    return reply.AddStringParam(outcome.answer, 1);
  }
  reply.SetResult(kNotExamined);
  reply.AddStringParam(outcome.error, 0);
  reply.AddIntParam(outcome.result);
}

}  // namespace

void ProcessTest_TCP(const BVRequest& request, TAVReply& reply) {
  TProbe probe;
  if (!ReadTCPProbe(request, probe)) return Answer(reply, kWrongParameter, "Wrong parameter");
  Report(Try(SendReceiveTCPPacket, probe), reply);
}

void ProcessTest_UDP(const BVRequest& request, TAVReply& reply) {
  TProbe probe;
  if (!ReadUDPProbe(request, probe)) return Answer(reply, kWrongParameter, "Wrong parameter");
  TOutcome outcome;
  for (int attempt = 0; attempt < probe.attempts && outcome.result <= 0 && !RequesterGone(); ++attempt) {
    outcome = Try(SendReceiveUDPPacket, probe);
  }
  Report(outcome, reply);
}
