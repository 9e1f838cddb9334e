#include "agent/portmove.h"

#include <arpa/inet.h>

#include <atomic>
#include <utility>

#include "agent/flags.h"
#include "agent/listener.h"
#include "agent/workers.h"

namespace {

constexpr int kPauseMs = 1000;

bool NeedsLookup(const String& host) {
  in_addr address;
  return host.Length() > 0 && inet_pton(AF_INET, host.CStr(), &address) != 1;
}

}  // namespace

struct TPortMove::TOutcome {
  std::atomic<bool> known{false};
  TFd socket;  // closed when the port can't be opened
};

struct TPortMove::TJob {
  String host;
  int port;
  std::shared_ptr<TOutcome> outcome;
};

void TPortMove::Open(const TJob& job) {
  String ignored;  // what is told of a move does not name the reason
  job.outcome->socket = TryListening(job.host, job.port, ignored);
  job.outcome->known = true;
}

void* TPortMove::OpeningMain(void* argument) {
  const std::unique_ptr<TJob> job(static_cast<TJob*>(argument));
  Open(*job);
  WakeMainLoop();
  return nullptr;
}

void TPortMove::Begin(const String& host, int port) {
  auto begun = std::make_shared<TOutcome>();
  auto job = std::make_unique<TJob>(TJob{host, port, begun});
  const bool lookup = NeedsLookup(host);
  outcome = std::move(begun);  // from here on nothing throws: it will be known
  if (!lookup) return Open(*job);
  if (StartThread(OpeningMain, job.get())) {
    (void)job.release();  // the thread's now
  } else {
    outcome->known = true;
  }
}

TPortMove::TState TPortMove::Step(const String& host, int port, long long nowMs, TFd& fresh) {
  if (port != target) {
    Forget();
    target = port;
  }
  if (outcome == nullptr) {
    if (nowMs < nextMs) return TState::kUnderWay;
    if (attempts == kListenAttempts) return std::exchange(told, true) ? TState::kGivenUp : TState::kFailed;
    Begin(host, port);
  }
  if (!outcome->known) return TState::kUnderWay;
  fresh = std::move(outcome->socket);
  outcome = nullptr;
  if (!fresh.IsOpen()) {
    ++attempts;
    nextMs = nowMs + kPauseMs;
    return TState::kUnderWay;
  }
  Forget();
  return TState::kOpened;
}
