#include "checks/nettests.h"

#include <algorithm>

#include "core/clock.h"
#include "core/requester.h"
#include "net/sockets.h"
#include "protocol/parameters.h"
#include "protocol/readparam.h"
#include "protocol/results.h"

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

bool ReadSize(const BVRequest& request, int line, int& size) {
  if (!ReadNumber(request, line, size)) return false;
  size = std::min(size, kLargestAnswer);
  return true;
}

bool ReadTCPProbe(const BVRequest& request, TProbe& probe) {
  namespace at = params::tcp;
  probe.host = ReadText(request, at::kHost);
  if (!ReadNumber(request, at::kPort, probe.port) || !ReadNumber(request, at::kTimeoutMs, probe.timeout))
    return false;
  if (probe.timeout == 0) probe.timeout = kDefaultTimeoutMs;
  probe.data = ReadLines(request, at::kData);
  return ReadSize(request, at::kReceiveSize, probe.receiveSize);
}

bool ReadUDPProbe(const BVRequest& request, TProbe& probe) {
  namespace at = params::udp;
  probe.host = ReadText(request, at::kHost);
  if (!ReadNumber(request, at::kPort, probe.port) || !ReadNumber(request, at::kTimeoutMs, probe.timeout))
    return false;
  probe.timeout /= 1000;
  if (probe.timeout == 0) probe.timeout = 1;
  if (!ReadNumber(request, at::kAttempts, probe.attempts) || probe.attempts == 0) return false;
  probe.data = ReadLines(request, at::kData);
  return probe.data.Length() > 0 && ReadSize(request, at::kReceiveSize, probe.receiveSize);
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
