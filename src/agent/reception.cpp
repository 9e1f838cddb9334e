#include "agent/reception.h"

#include <errno.h>
#include <limits.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "agent/chunks.h"
#include "agent/flags.h"
#include "agent/showmessage.h"
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

bool TReception::Admit(TFd socket, in_addr peer, TConnection& whole) {
  const TPasswordKeysPtr keys = PasswordInForce();
  TRecords fresh(1), over;
  TPending& pending = fresh.front();
  pending.socket = std::move(socket);
  pending.peer = peer;
  pending.lastData = MonotonicSeconds();
  BeginSession();
  bool tell = false;
  {
    TLock lock(mutex);
    if (Receive(pending, *keys, over) != TOutcome::kMore || !Keep(fresh, over)) {
      if (!fresh.empty()) Leave(pending, fresh, over);
    } else {
      tell = !std::exchange(expiryKnown, true);
    }
  }
  if (tell) WakeMainLoop();
  return Settle(over, *keys, whole);
}

bool TReception::Readable(uint64_t number, TConnection& whole) {
  TPasswordKeysPtr keys;
  try {
    keys = PasswordInForce();
  } catch (const std::exception&) {  // goes on below, or the connection would never be looked at again
  }
  TRecords over;
  {
    TLock lock(mutex);
    TPending* const pending = Find(number);
    if (pending == nullptr) return false;  // left while this event was under way
    const bool more = keys != nullptr && Receive(*pending, *keys, over) == TOutcome::kMore;
    if (!more || !Watch(EPOLL_CTL_MOD, *pending)) Leave(*pending, waiting, over);
  }
  if (keys != nullptr) return Settle(over, *keys, whole);
  for (TPending& pending : over) EndSession(pending.socket);
  return false;
}

// Receives what there is, as far as one turn goes.
TReception::TOutcome TReception::Receive(TPending& pending, const TPasswordKeys& keys, TRecords& over) try {
  for (int reads = 0; reads < kReadsPerTurn; ++reads) {
    const int size = NextReadSize(MissingBytes(pending.head), kBuffer);
    const ssize_t n = recv(pending.socket.Get(), buffer.get(), static_cast<size_t>(size), 0);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return TOutcome::kMore;
    if (n <= 0) return TOutcome::kOver;
    Take(pending, static_cast<int>(n), keys);
    if (pending.whole) return TOutcome::kWhole;
    if (held > kMostHeld && !LetAHolderGo(pending, over)) return TOutcome::kOver;
  }
  return TOutcome::kMore;
} catch (const std::exception&) {
  return TOutcome::kOver;
}

// Adds n received bytes.  Keeps those of a packet that can still be good; until the head is complete it holds all
// there is.
void TReception::Take(TPending& pending, int n, const TPasswordKeys& keys) {
  pending.lastData = MonotonicSeconds();
  if (pending.serial != 0) waiting.splice(waiting.end(), waiting, pending.self);
  TPacketHead& head = pending.head;
  head.Feed(buffer.get(), n);
  pending.whole = head.Whole();
  if (pending.hopeless) return;
  if (head.Hopeless(keys) || head.Declared() > kMaxPacket) {
    pending.hopeless = true;
    pending.packet = String();
  } else if (head.Received() >= TPacketHead::kKept || pending.whole) {
    if (pending.packet.Length() == 0) pending.packet.AddData(head.Kept(), static_cast<int>(head.Received() - n));
    pending.packet.AddData(buffer.get(), n);
  }
  held += pending.packet.Length() - pending.counted;
  pending.counted = pending.packet.Length();
}

// Too much is held: who holds something and has been silent longest goes.  False when that is `but`, who has just
// talked.
bool TReception::LetAHolderGo(const TPending& but, TRecords& over) {
  const auto holder =
      std::find_if(waiting.begin(), waiting.end(), [](const TPending& p) { return p.packet.Length() > 0; });
  if (holder == waiting.end() || &*holder == &but) return false;
  Leave(*holder, waiting, over);
  return true;
}

// Has the one record of `fresh` wait for more.  False when that can't be; it is over, or still in `fresh`.
bool TReception::Keep(TRecords& fresh, TRecords& over) try {
  if (waiting.size() >= mostAtOnce) Leave(waiting.front(), waiting, over);
  TPending& pending = fresh.front();
  const size_t fd = static_cast<size_t>(pending.socket.Get());
  if (watched.size() <= fd) watched.resize(fd + 1);
  watched[fd] = &pending;
  if (++lastSerial == 0) ++lastSerial;
  pending.serial = lastSerial;
  pending.self = fresh.begin();
  waiting.splice(waiting.end(), fresh);
  if (Watch(EPOLL_CTL_ADD, pending)) return true;
  Leave(pending, waiting, over);
  return false;
} catch (const std::exception&) {
  return false;
}

bool TReception::Watch(int operation, const TPending& pending) {
  epoll_event event = {};
  event.events = EPOLLIN | EPOLLONESHOT;
  event.data.u64 = uint64_t{pending.serial} << 32 | static_cast<unsigned>(pending.socket.Get());
  return epoll_ctl(epoll, operation, pending.socket.Get(), &event) == 0;
}

TReception::TPending* TReception::Find(uint64_t number) {
  const size_t fd = number & UINT32_MAX;
  TPending* const pending = fd < watched.size() ? watched[fd] : nullptr;
  return pending != nullptr && pending->serial == number >> 32 ? pending : nullptr;
}

// The record goes over to those that Settle() is to deal with, without the lock.
void TReception::Leave(TPending& pending, TRecords& from, TRecords& over) {
  held -= pending.counted;
  if (pending.serial == 0) return over.splice(over.end(), from);
  watched[static_cast<size_t>(pending.socket.Get())] = nullptr;
  // Closing alone would not do: a child that is just being started still holds the socket, which would stay
  // watched.
  for (int tries = 0; tries < 2; ++tries) {
    if (epoll_ctl(epoll, EPOLL_CTL_DEL, pending.socket.Get(), nullptr) == 0 || errno == ENOENT) break;
  }
  over.splice(over.end(), from, pending.self);
}

// Ends the sessions of those that have left, but the one whose packet is whole and may be good.
bool TReception::Settle(TRecords& over, const TPasswordKeys& keys, TConnection& whole) {
  bool serve = false;
  for (TPending& pending : over) {
    if (pending.whole && !pending.hopeless) {
      serve = true;
      whole.socket = std::move(pending.socket);
      whole.peer = pending.peer;
      whole.packet = std::move(pending.packet);
      continue;
    }
    if (pending.whole) {
      (void)pending.head.CheckFrame(pending.peer, keys);  // for its diagnostic lines
      showmessage("<-- Invalid BV request received\n", pending.peer, mtInfo, 0);
    }
    EndSession(pending.socket);
  }
  return serve;
}

void TReception::ExpireSilent() {
  const int timeout = SettingsInForce()->timeout;
  if (timeout <= 0) return;
  const long long now = MonotonicSeconds();
  TRecords over;
  {
    TLock lock(mutex);
    while (!waiting.empty() && waiting.front().lastData + timeout / 1000 < now) {
      Leave(waiting.front(), waiting, over);
    }
  }
  for (TPending& pending : over) EndSession(pending.socket);
}

int TReception::MsUntilExpiry() {
  const int timeout = SettingsInForce()->timeout;
  TLock lock(mutex);
  expiryKnown = !waiting.empty();
  if (timeout <= 0 || waiting.empty()) return -1;
  const long long left = (waiting.front().lastData + timeout / 1000 + 1) * 1000 - MonotonicMs();
  return static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
}

bool TReception::MakeRoom() {
  TRecords over;
  {
    TLock lock(mutex);
    if (waiting.empty()) return false;
    for (size_t n = waiting.size() / kRoomShare + 1; n > 0 && !waiting.empty(); --n) {
      Leave(waiting.front(), waiting, over);
    }
  }
  for (TPending& pending : over) EndSession(pending.socket);
  return true;
}
