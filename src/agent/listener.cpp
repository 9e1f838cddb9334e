#include "agent/listener.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <unistd.h>

#include <exception>
#include <utility>

#include "agent/flags.h"
#include "agent/workers.h"
#include "config/settings.h"
#include "net/sockets.h"

namespace {

struct TOpeningJob {
  int port;
  std::shared_ptr<TPortOpening::TOutcome> outcome;
};

TFd ListenOnce(int port, String& error) {
  if (port == 0) return TFd();  // would be whatever port the system picks, and nobody would find the agent there
  socklen_t addressLength = 0;
  String host(SettingsInForce()->host);
  const int fd = TcpListen(host.Length() > 0 ? host.CStr() : nullptr, port, addressLength, error);
  if (fd <= 0) return TFd();
  // A connection that is gone before it is accepted must not make accept wait.
  (void)fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
  return TFd(fd);
}

// An attempt that memory does not suffice for has failed like any other.
TFd TryListening(int port, String& error) {
  try {
    return ListenOnce(port, error);
  } catch (const std::exception&) {
    return TFd();
  }
}

void Open(const TOpeningJob& job) {
  String ignored;  // what is told of a move does not name the reason
  job.outcome->socket = TryListening(job.port, ignored);
  job.outcome->known = true;
}

void* OpeningMain(void* argument) {
  const std::unique_ptr<TOpeningJob> job(static_cast<TOpeningJob*>(argument));
  Open(*job);
  WakeMainLoop();
  return nullptr;
}

bool NeedsLookup(const String& host) {
  in_addr address;
  return host.Length() > 0 && inet_pton(AF_INET, host.CStr(), &address) != 1;
}

}  // namespace

TFd Listen(String& error) {
  for (int attempt = 0; attempt < kListenAttempts; ++attempt) {
    TFd fd = TryListening(SettingsInForce()->port, error);
    if (fd.IsOpen()) return fd;
    sleep(1);
  }
  return TFd();
}

void TPortOpening::Begin(int port) {
  auto begun = std::make_shared<TOutcome>();
  auto job = std::make_unique<TOpeningJob>(TOpeningJob{port, begun});
  const bool lookup = NeedsLookup(SettingsInForce()->host);
  outcome = std::move(begun);  // from here on nothing throws: it will be known
  if (!lookup) return Open(*job);
  if (StartThread(OpeningMain, job.get())) {
    (void)job.release();  // the thread's now
  } else {
    outcome->known = true;
  }
}

bool TPortOpening::Ended(TFd& socket) {
  if (outcome == nullptr || !outcome->known) return false;
  socket = std::move(outcome->socket);
  outcome = nullptr;
  return true;
}
