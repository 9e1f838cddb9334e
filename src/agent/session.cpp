#include "agent/session.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>

#include <memory>
#include <new>
#include <utility>

#include "agent/chunks.h"
#include "agent/dispatch.h"
#include "agent/flags.h"
#include "agent/showmessage.h"
#include "agent/upgrade.h"
#include "config/agent_status.h"
#include "config/settings.h"
#include "core/requester.h"
#include "protocol/bvrequest.h"
#include "protocol/results.h"
#include "protocol/tavreply.h"

namespace {

constexpr int kTransferBuffer = 64 * kChunk;
constexpr int kSendStallMs = 60000;      // a peer that takes nothing for so long is given up
constexpr int kDrainMs = 2000;           // how long unread bytes of a peer are taken after the reply, at most
constexpr int kDrainBytes = 256 * 1024;  // and how many

// Waits for `events`; false when the time is over.  -1 waits for ever.
bool WaitFor(int fd, short events, int timeoutMs) {
  const long long deadline = MonotonicMs() + timeoutMs;
  for (;;) {
    pollfd p = {fd, events, 0};
    const long long left = deadline - MonotonicMs();
    const int n = poll(&p, 1, timeoutMs < 0 ? -1 : static_cast<int>(left > 0 ? left : 0));
    if (n >= 0 || errno != EINTR) return n > 0;
  }
}

bool SendAll(int fd, const String& packet) {
  const char* data = packet.Data();
  size_t left = static_cast<size_t>(packet.Length());
  while (left > 0) {
    const ssize_t n = send(fd, data, left, MSG_NOSIGNAL);
    if (n > 0) {
      data += n;
      left -= static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) return false;
    if (!WaitFor(fd, POLLOUT, kSendStallMs)) return false;
  }
  return true;
}

// Receives once, waiting for ever; 0 or less when the connection is over.
int Receive(int fd, char* buffer, int size) {
  for (;;) {
    const ssize_t n = recv(fd, buffer, static_cast<size_t>(size), 0);
    if (n >= 0) return static_cast<int>(n);
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) return -1;
    (void)WaitFor(fd, POLLIN, -1);
  }
}

// Closing a connection with unread bytes resets it, and the reset can overtake the reply.  So the peer is told that
// nothing more comes, and what it still sends is taken for a moment.
void Drain(int fd) {
  if (shutdown(fd, SHUT_WR) != 0) return;
  char scrap[4 * kChunk];
  const long long deadline = MonotonicMs() + kDrainMs;
  for (int taken = 0; taken < kDrainBytes;) {
    const ssize_t n = recv(fd, scrap, sizeof scrap, 0);
    if (n > 0) {
      taken += static_cast<int>(n);
      continue;
    }
    if (n == 0 || (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK)) return;
    const long long left = deadline - MonotonicMs();
    if (left <= 0 || !WaitFor(fd, POLLIN, static_cast<int>(left))) return;
  }
}

// The first three characters of a result text that is longer than two; else nothing.
String ResultCode(const TAVReply& reply) {
  return reply.Length() > 2 ? reply.Text().Copy(1, 3) : String();
}

// Takes the new program from the connection; true when there is something to answer.
bool ReceiveUpgrade(int fd, UpgradeRec& record, String& error) {
  const auto buffer = std::make_unique<char[]>(kTransferBuffer);
  while (record.Active()) {
    const int n = Receive(fd, buffer.get(), record.NextRead(kTransferBuffer));
    if (n <= 0) return false;
    (void)DoUpgrading(record, buffer.get(), n, error);  // the error text tells the same
  }
  return true;
}

// One request, answered; false when there is nobody to answer.
bool Serve(TConnection& connection, UpgradeRec& upgrade) {
  const int givenUp = TimesGivenUp();
  BVRequest request(std::move(connection.packet));
  if (!request.ParseInitRequest(*PasswordInForce(), connection.peer)) {
    showmessage("<-- Invalid BV request received\n", connection.peer, mtInfo, 0);
    return false;
  }
  showmessage("<-- Correct BV request received\n", connection.peer, mtInfo, 0);

  TAVReply reply;
  TTAVFlags raised;
  const int fd = connection.socket.Get();
  reply.InitPacket(nullptr, request);
  const TRequester requester(fd);
  const bool known = ProcessBVRequest(request, reply, raised, ThreadParams{fd, connection.peer}, upgrade);
  showmessage(known ? "--> request processed (%s)\n" : "--> request rejected or operation failed (%s)\n",
              connection.peer, mtInfo, 1, ResultCode(reply).CStr());
  reply.FinalizePacket();
  const bool sent = givenUp == TimesGivenUp() && SendAll(fd, reply.Text());
  TAVFlags.Raise(raised);
  if (!upgrade.Active()) return sent;

  String error;
  if (!ReceiveUpgrade(fd, upgrade, error)) return false;
  if (error.Length() > 0) {
    Answer(reply, kFailed, error);
  } else {
    reply.SetResult(kDone);
  }
  reply.FinalizePacket();
  return givenUp == TimesGivenUp() && SendAll(fd, reply.Text());
}

}  // namespace

void BeginSession() {
  AgentStatus.ActiveConnections.fetch_add(1);
  AgentStatus.OpenedConnections.fetch_add(1);
}

void EndSession(TFd& socket) {
  showmessage("Session closed, wait for next ..\n", kNoPeer, mtInfo, 0);
  (void)shutdown(socket.Get(), SHUT_RDWR);  // the peer may have gone first
  socket.Reset();
  AgentStatus.ActiveConnections.fetch_sub(1);
}

void ClientExecute(TConnection& connection) {
  UpgradeRec upgrade;
  try {
    if (Serve(connection, upgrade)) Drain(connection.socket.Get());
  } catch (const std::exception&) {
    // Out of memory: this session goes without an answer, the agent goes on.
  }
  EndSession(connection.socket);

  // Not before the connection is closed: the new program must not begin while the old one still answers.
  TTAVFlags raised;
  raised.upgrade = upgrade.Ready();
  TAVFlags.Raise(raised);
}
