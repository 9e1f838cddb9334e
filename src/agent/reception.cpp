#include "agent/reception.h"

#include <errno.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "agent/chunks.h"
#include "agent/flags.h"
#include "agent/showmessage.h"
#include "agent/workers.h"
#include "config/settings.h"
#include "core/treewalk.h"
#include "protocol/bvrequest.h"
#include "protocol/tav_const.h"

namespace {

constexpr int kBuffer = 64 * kChunk;
constexpr int kReadsPerTurn = 4;                     // then the next connection has its turn
constexpr size_t kMostWaiting = 65536;               // records of some 250 bytes
constexpr long long kMostHeld = 24LL * 1024 * 1024;  // bytes of unfinished packets, all together
constexpr size_t kRoomShare = 2;                     // one in so many makes room, and not only for one more
// What sessions have for themselves where descriptors are few: a tree walk's, its connection, and the agent's own.
constexpr rlim_t kSessionDescriptors = kWalkDescriptors + 16;

// Half of the descriptors, or fewer: however many connections wait to be received, sessions find what they need.
size_t MostAtOnce() {
  rlimit files = {};
  (void)getrlimit(RLIMIT_NOFILE, &files);
  const rlim_t limit = files.rlim_cur;
  const rlim_t left = limit > kSessionDescriptors ? limit - kSessionDescriptors : 0;
  const rlim_t share = std::min(limit / 2, std::max(left, limit / 4));
  return static_cast<size_t>(std::clamp<rlim_t>(share, 1, kMostWaiting));
}

// How much of the packet is still to come, as far as it has told.
long long MissingBytes(const TPacketHead& head) {
  return head.Received() < SIZELEN_PACKET ? 0 : head.Declared() + SIZELEN_PACKET - head.Received();
}

}  // namespace

TReception::TReception(int epollDescriptor)
    : epoll(epollDescriptor), mostAtOnce(MostAtOnce()), buffer(new char[kBuffer]) {}

void TReception::Admit(TFd socket, in_addr peer) {
  if (waiting.size() >= mostAtOnce) End(waiting.front());
  waiting.emplace_back();
  BeginSession();
  TPending& pending = waiting.back();
  pending.self = std::prev(waiting.end());
  pending.socket = std::move(socket);
  pending.peer = peer;
  pending.lastData = MonotonicSeconds();

  epoll_event event = {};
  event.events = EPOLLIN;
  event.data.ptr = &pending;
  if (epoll_ctl(epoll, EPOLL_CTL_ADD, pending.socket.Get(), &event) != 0) End(pending);
}

void TReception::Readable(TPending& pending) {
  if (!pending.socket.IsOpen()) return;  // left while this event was waiting its turn
  try {
    Receive(pending);
  } catch (const std::exception&) {
    if (pending.socket.IsOpen()) End(pending);
  }
}

void TReception::Receive(TPending& pending) {
  for (int reads = 0; reads < kReadsPerTurn; ++reads) {
    const int size = NextReadSize(MissingBytes(pending.head), kBuffer);
    const ssize_t n = recv(pending.socket.Get(), buffer.get(), static_cast<size_t>(size), 0);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    if (n <= 0) return End(pending);
    if (!Take(pending, static_cast<int>(n))) return;
  }
}

// Adds n received bytes; false when the session has left the reception.
bool TReception::Take(TPending& pending, int n) {
  pending.lastData = MonotonicSeconds();
  waiting.splice(waiting.end(), waiting, pending.self);
  pending.head.Feed(buffer.get(), n);
  Judge(pending, n);
  if (pending.head.Whole()) {
    Complete(pending);
    return false;
  }
  if (held <= kMostHeld) return true;
  // Too much is held.  Who holds something and has been silent longest goes, perhaps this one.
  const auto holder =
      std::find_if(waiting.begin(), waiting.end(), [](const TPending& p) { return p.packet.Length() > 0; });
  const bool self = &*holder == &pending;
  End(*holder);
  return !self;
}

// Keeps the bytes of a packet that can still be good.  Until the head is complete it holds all there is.
void TReception::Judge(TPending& pending, int n) {
  if (pending.hopeless) return;
  const TPacketHead& head = pending.head;
  if (head.Hopeless(*PasswordInForce()) || head.Declared() > kMaxPacket) {
    pending.hopeless = true;
    pending.packet = String();
  } else if (head.Received() >= TPacketHead::kKept || head.Whole()) {
    if (pending.packet.Length() == 0) pending.packet.AddData(head.Kept(), static_cast<int>(head.Received() - n));
    pending.packet.AddData(buffer.get(), n);
  }
  Count(pending);
}

void TReception::Count(TPending& pending) {
  held += pending.packet.Length() - pending.counted;
  pending.counted = pending.packet.Length();
}

void TReception::Complete(TPending& pending) {
  if (pending.hopeless) {
    (void)pending.head.CheckFrame(pending.peer, *PasswordInForce());  // for its diagnostic lines
    showmessage("<-- Invalid BV request received\n", pending.peer, mtInfo, 0);
    return End(pending);
  }
  auto connection = std::make_unique<TConnection>();
  connection->peer = pending.peer;
  connection->packet = std::move(pending.packet);
  connection->socket = Remove(pending);
  if (!RunSession(connection)) EndSession(connection->socket);
}

void TReception::End(TPending& pending) {
  TFd socket = Remove(pending);
  EndSession(socket);
}

TFd TReception::Remove(TPending& pending) {
  // Closing alone would not do: a child that is just being started still holds the socket, and events would go on
  // to name a record that is gone.
  for (int tries = 0; tries < 2; ++tries) {
    if (epoll_ctl(epoll, EPOLL_CTL_DEL, pending.socket.Get(), nullptr) == 0 || errno == ENOENT) break;
  }
  pending.packet = String();  // at once: it no longer counts as held
  Count(pending);
  gone.splice(gone.end(), waiting, pending.self);
  return std::move(pending.socket);
}

void TReception::ExpireSilent() {
  const int timeout = SettingsInForce()->timeout;
  if (timeout <= 0) return;
  const long long now = MonotonicSeconds();
  while (!waiting.empty() && waiting.front().lastData + timeout / 1000 < now) End(waiting.front());
}

int TReception::MsUntilExpiry(int most) const {
  const int timeout = SettingsInForce()->timeout;
  if (timeout <= 0 || waiting.empty()) return most;
  const long long left = (waiting.front().lastData + timeout / 1000 + 1) * 1000 - MonotonicMs();
  return static_cast<int>(std::clamp<long long>(left, 0, most));
}

bool TReception::MakeRoom() {
  if (waiting.empty()) return false;
  for (size_t n = waiting.size() / kRoomShare + 1; n > 0 && !waiting.empty(); --n) End(waiting.front());
  return true;
}
