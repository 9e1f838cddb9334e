#include "agent/session.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
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
#include "net/sockio.h"
#include "protocol/bvrequest.h"
#include "protocol/results.h"
#include "protocol/tavreply.h"

namespace {

constexpr int kTransferBuffer = 64 * kChunk;
constexpr int kSendStallMs = 60000;      // a peer that takes nothing for so long is given up
constexpr int kDrainMs = 2000;           // how long unread bytes of a peer are taken after the reply, at most
constexpr int kDrainBytes = 256 * 1024;  // and how many

bool SendAll(int fd, const String& packet) {
  const int length = packet.Length();
  return length == 0 || SendWithin(fd, packet.Data(), length, TDeadline::OfSilence(kSendStallMs), false) == length;
}

// Whether the peer has sent more than was read, or may, because part of the reply still waits for room there.
bool MoreToCome(int fd) {
  int unread = 0, unsent = 0;
  if (ioctl(fd, SIOCINQ, &unread) != 0 || ioctl(fd, SIOCOUTQNSD, &unsent) != 0) return true;
  return unread > 0 || unsent > 0;
}

// Closing a connection with unread bytes resets it, and the reset can overtake the reply.  So where there may be
// some the peer is told that nothing more comes, and what it still sends is taken for a moment.
void Drain(int fd) {
  if (!MoreToCome(fd)) return;
  if (shutdown(fd, SHUT_WR) != 0) return;
  char scrap[4 * kChunk];
  const TDeadline deadline(kDrainMs);
  for (int taken = 0; taken < kDrainBytes;) {
    const int n = ReceiveWithin(fd, scrap, sizeof scrap, deadline);
    if (n <= 0) return;
    taken += n;
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
    const int n = ReceiveWithin(fd, buffer.get(), record.NextRead(kTransferBuffer), TDeadline::Never());
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
  try {
    showmessage("Session closed, wait for next ..\n", kNoPeer, mtInfo, 0);
  } catch (const std::exception&) {  // what follows must not depend on a line of a log
  }
  socket.Reset();  // the peer sees it: a child that is being started lets go of its copies first of all
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
