#include "agent/acceptor.h"

#include <errno.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "agent/flags.h"
#include "agent/showmessage.h"
#include "config/agent_status.h"
#include "config/ipfilter.h"
#include "config/settings.h"
#include "core/trouble.h"

namespace {

constexpr int kPauseMs = 100;  // while descriptors or memory are short and no room can be made

// The listener itself is broken; everything else that accept reports concerns one connection that is gone.
bool IsFatal(int error) {
  return error == EBADF || error == EINVAL || error == ENOTSOCK || error == EOPNOTSUPP || error == EFAULT;
}

}  // namespace

// --- the listener ---

void TAcceptor::Open(TFd fresh) {
  TLock lock(mutex);
  Release();
  listener = std::move(fresh);
  Watch();
}

// A listener that can't be watched is tried again after the pause.
void TAcceptor::Watch() {
  againMs = 0;
  if (!listener.IsOpen()) return;
  epoll_event event = {};
  event.events = EPOLLIN | EPOLLONESHOT;
  event.data.u64 = TReception::kNoConnection;
  const bool done = epoll_ctl(epoll, EPOLL_CTL_MOD, listener.Get(), &event) == 0 ||
                    (errno == ENOENT && epoll_ctl(epoll, EPOLL_CTL_ADD, listener.Get(), &event) == 0);
  if (done) return;
  againMs = MonotonicMs() + kPauseMs;
  WakeMainLoop();
}

// Closing alone would not do: a child that is just being started still holds the socket, which would stay watched
// and readable.
void TAcceptor::Release() {
  if (listener.IsOpen()) epoll_ctl(epoll, EPOLL_CTL_DEL, listener.Get(), nullptr);
  listener.Reset();
  againMs = 0;
}

void TAcceptor::Close() {
  TLock lock(mutex);
  Release();
}

void TAcceptor::CloseIfFree() {
  if (!mutex.TryLock()) return;
  TLock lock(mutex, TLocked{});
  Release();
}

bool TAcceptor::IsOpen() {
  TLock lock(mutex);
  return listener.IsOpen();
}

int TAcceptor::Resume() {
  TLock lock(mutex);
  if (againMs > 0 && MonotonicMs() >= againMs) Watch();
  return againMs == 0 ? -1 : static_cast<int>(std::max(0LL, againMs - MonotonicMs()));
}

// --- connections ---

// A connection that is taken, or one that is gone, leaves the listener watched: the next thread may go on at once.
TFd TAcceptor::TakeOne(sockaddr_in& address, int& error) {
  socklen_t length = sizeof address;
  error = 0;
  TLock lock(mutex);
  if (!listener.IsOpen()) return TFd();  // closed while this event was under way
  const int flags = SOCK_CLOEXEC | SOCK_NONBLOCK;
  TFd socket(accept4(listener.Get(), reinterpret_cast<sockaddr*>(&address), &length, flags));
  if (!socket.IsOpen()) error = errno;
  if (OwnTrouble(error)) {
    againMs = MonotonicMs() + kPauseMs;  // at the latest, whatever Relieve() comes to
    WakeMainLoop();
  } else if (!IsFatal(error)) {
    Watch();
  }
  return socket;
}

bool TAcceptor::Accept(TConnection& whole) {
  sockaddr_in address = {};
  int error = 0;
  TFd socket = TakeOne(address, error);
  if (socket.IsOpen()) {
    tookSome = true;
    return Admit(std::move(socket), address.sin_addr, whole);
  }
  if (IsFatal(error)) {
    fatalError = error;
    WakeMainLoop();
  } else if (OwnTrouble(error)) {
    Relieve(error);
  }
  return false;
}

// Descriptors or memory are short.  Those just taken have their turn before they have to make room; where there is
// no room to be made the listener has a rest, or the threads would spin on a connection that nobody can take.
void TAcceptor::Relieve(int error) {
  if (tookSome.exchange(false) || reception.MakeRoom()) {
    TLock lock(mutex);
    Watch();
  }
  Complain(error);
}

bool TAcceptor::Admit(TFd socket, in_addr peer, TConnection& whole) {
  const TSettingsPtr settings = SettingsInForce();
  if (settings->filteractive && !PassesFilter(peer, settings->activefilter)) {
    AgentStatus.FailedConnections.fetch_add(1);
    showmessage("TCP connection rejected\n", peer, mtFailure, 0);
    shutdown(socket.Get(), SHUT_RDWR);
    return false;
  }
  showmessage("TCP connection accepted\n", peer, mtSuccess, 0);
  return reception.Admit(std::move(socket), peer, whole);
}

void TAcceptor::Complain(int error) {
  const long long now = MonotonicSeconds();
  if (lastComplaintS.exchange(now) == now) return;
  showmessage("Cannot accept connections now, error %d\n", kNoPeer, mtFailure, 1, error);
}
