#include "client/wire.h"

#include <errno.h>
#include <linux/sockios.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>

#include "client/text.h"
#include "core/clock.h"
#include "protocol/tav_const.h"

namespace {

struct TAddresses {
  addrinfo* first = nullptr;
  ~TAddresses() {
    if (first != nullptr) freeaddrinfo(first);
  }
};

bool Resolve(const TTarget& target, TAddresses& addresses, TFailure& failure) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  // An address needs no resolver, and asking one would cost the start its configuration files.
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  const std::string port = std::to_string(target.port);
  if (getaddrinfo(target.host.c_str(), port.c_str(), &hints, &addresses.first) == 0) return true;
  hints.ai_flags = AI_NUMERICSERV | AI_ADDRCONFIG;
  const int error = getaddrinfo(target.host.c_str(), port.c_str(), &hints, &addresses.first);
  if (error == 0) return true;
  addresses.first = nullptr;
  if (error == EAI_AGAIN)
    return Fail(failure, TKind::kUnknownHost, "the name '" + target.host + "' cannot be resolved just now",
                "is the name server reachable? The address itself works with -H, too");
  return Fail(failure, TKind::kUnknownHost, "unknown host '" + target.host + "'");
}

}  // namespace

std::string OwnAddress(const TTarget& target) {
  TAddresses addresses;
  TFailure failure;
  if (!Resolve(target, addresses, failure)) return "";
  // Connecting a datagram socket chooses the route and with it the address, no more.
  const addrinfo* at = addresses.first;
  const TFd probe(socket(at->ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_storage own{};
  socklen_t size = sizeof own;
  if (!probe.IsOpen() || connect(probe.Get(), at->ai_addr, at->ai_addrlen) != 0) return "";
  if (getsockname(probe.Get(), reinterpret_cast<sockaddr*>(&own), &size) != 0) return "";
  char text[NI_MAXHOST];
  const int named =
      getnameinfo(reinterpret_cast<sockaddr*>(&own), size, text, sizeof text, nullptr, 0, NI_NUMERICHOST);
  return named == 0 ? text : "";
}

bool TLink::Wait(short events, long long timeoutMs, const char* doing, TFailure& failure) {
  const long long deadline = MonotonicMs() + timeoutMs;
  for (;;) {
    pollfd entry{fd.Get(), events, 0};
    const long long left = std::max(0LL, deadline - MonotonicMs());
    const int ready = poll(&entry, 1, static_cast<int>(std::min(left, 86400000LL)));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR)
      return Fail(failure, TKind::kInternal, std::string("poll: ") + strerror(errno));
    if (ready == 0)
      return Fail(failure, TKind::kTimeout,
                  name + ": nothing for " + MillisecondsText(static_cast<double>(timeoutMs)) + " while " + doing);
  }
}

bool TLink::Connect(const TTarget& target, long long timeoutMs, TFailure& failure) {
  name = target.Name();
  TAddresses addresses;
  if (!Resolve(target, addresses, failure)) return false;
  for (const addrinfo* at = addresses.first; at != nullptr; at = at->ai_next) {
    fd = TFd(socket(at->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.IsOpen()) {
      Fail(failure, TKind::kUnreachable, name + ": " + strerror(errno));
      continue;
    }
    int error = connect(fd.Get(), at->ai_addr, at->ai_addrlen) == 0 ? 0 : errno;
    if (error == EINPROGRESS || error == EINTR) {
      if (!Wait(POLLOUT, timeoutMs, "connecting", failure)) continue;
      socklen_t size = sizeof error;
      getsockopt(fd.Get(), SOL_SOCKET, SO_ERROR, &error, &size);
    }
    if (error == 0) {
      const int on = 1;
      (void)setsockopt(fd.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);  // only speed hangs on it
      return true;
    }
    if (error == ETIMEDOUT)
      Fail(failure, TKind::kTimeout, name + ": " + strerror(error));
    else
      Fail(failure, TKind::kUnreachable, name + ": " + strerror(error));
  }
  fd.Reset();
  return false;
}

bool TLink::Lost(int error, TFailure& failure) {
  if (error == 0 || error == ECONNRESET || error == EPIPE)
    return Fail(failure, TKind::kClosed, name + " closed the connection without a reply");
  return Fail(failure, TKind::kUnreachable, name + ": " + strerror(error));
}

bool TLink::Send(const char* bytes, size_t n, long long timeoutMs, TFailure& failure) {
  while (n > 0) {
    const ssize_t sent = send(fd.Get(), bytes, n, MSG_NOSIGNAL);
    if (sent >= 0) {
      bytes += sent;
      n -= static_cast<size_t>(sent);
      continue;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN) return Lost(errno, failure);
    if (!Wait(POLLOUT, timeoutMs, "sending", failure)) return false;
  }
  return true;
}

bool TLink::Read(char* bytes, size_t n, long long firstMs, long long timeoutMs, TFailure& failure) {
  long long patience = firstMs;
  while (n > 0) {
    const ssize_t got = recv(fd.Get(), bytes, n, 0);
    if (got == 0) return Lost(0, failure);
    if (got > 0) {
      bytes += got;
      n -= static_cast<size_t>(got);
      patience = timeoutMs;
      continue;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN) return Lost(errno, failure);
    if (!Wait(POLLIN, patience, "waiting for the reply", failure)) return false;
  }
  return true;
}

bool TLink::ReadPacket(std::string& packet, long long firstMs, long long timeoutMs, TFailure& failure) {
  packet.assign(SIZELEN_PACKET, '\0');
  if (!Read(packet.data(), SIZELEN_PACKET, firstMs, timeoutMs, failure)) return false;
  const unsigned length = static_cast<unsigned>(DecodeLength(packet.data(), SIZELEN_PACKET));
  if (length == 0 || length > kMaxReply)
    return Fail(failure, TKind::kUndecodable,
                name + " announces a reply of " + NumberText(length) + " bytes, which no agent sends",
                "is this a tav agent, and not some other service on this port?");
  // Grown as the bytes arrive: a length alone must not cost memory.
  for (size_t done = 0; done < length;) {
    const size_t block = std::min<size_t>(length - done, 256 * 1024);
    packet.resize(SIZELEN_PACKET + done + block);
    if (!Read(packet.data() + SIZELEN_PACKET + done, block, timeoutMs, timeoutMs, failure)) {
      if (failure.kind == TKind::kClosed)
        Fail(failure, TKind::kUndecodable, name + " closed the connection in the middle of its reply",
             "did the agent restart or crash? Its log tells; try again");
      return false;
    }
    done += block;
  }
  return true;
}

bool TLink::Drain(long long timeoutMs, TFailure& failure) {
  int before = -1;
  for (long long since = MonotonicMs();;) {
    int queued = 0;
    if (ioctl(fd.Get(), SIOCOUTQ, &queued) != 0 || queued == 0) return true;
    if (queued != before) since = MonotonicMs();
    before = queued;
    if (MonotonicMs() - since > timeoutMs) return Fail(failure, TKind::kTimeout, name + " takes no more data");
    // Readable now means an early reply or the connection's end; the caller reads which.
    pollfd entry{fd.Get(), POLLIN, 0};
    if (poll(&entry, 1, 5) > 0) return true;
  }
}
