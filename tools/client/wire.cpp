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
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "client/text.h"
#include "core/clock.h"
#include "protocol/tav_const.h"

namespace {

using TAddresses = std::unique_ptr<addrinfo, void (*)(addrinfo*)>;

struct TLookup {
  std::mutex lock;  // of what follows
  std::condition_variable changed;
  bool done = false;
  int error = 0;
  TAddresses found{nullptr, freeaddrinfo};
};

int LookUp(const std::string& host, const std::string& port, int flags, TAddresses& found) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = flags | AI_NUMERICSERV;
  addrinfo* first = nullptr;
  const int error = getaddrinfo(host.c_str(), port.c_str(), &hints, &first);
  if (error == 0) found.reset(first);
  return error;
}

void LookUpAside(const std::shared_ptr<TLookup>& lookup, const std::string& host, const std::string& port) {
  TAddresses found(nullptr, freeaddrinfo);
  const int error = LookUp(host, port, AI_ADDRCONFIG, found);
  const std::lock_guard<std::mutex> hold(lookup->lock);
  lookup->error = error;
  lookup->found = std::move(found);
  lookup->done = true;
  lookup->changed.notify_all();
}

// The resolver knows no time limit of ours, so it is asked on a thread of its own, which is left behind when it
// takes too long.
bool ResolveName(const TTarget& target, const std::string& port, long long limitMs, TAddresses& found,
                 TFailure& failure) {
  const auto lookup = std::make_shared<TLookup>();
  try {
    std::thread(LookUpAside, lookup, target.host, port).detach();
  } catch (const std::system_error& error) {
    return Fail(failure, TKind::kInternal, std::string("no thread for the resolver: ") + error.what());
  }
  std::unique_lock<std::mutex> hold(lookup->lock);
  const auto limit = std::chrono::milliseconds(std::max(0LL, limitMs));
  if (!lookup->changed.wait_for(hold, limit, [&] { return lookup->done; }))
    return Fail(
        failure, TKind::kTimeout,
        "the name '" + target.host + "' was not resolved within " + MillisecondsText(static_cast<double>(limitMs)),
        "is the name server reachable? The address itself works with -H, too");
  found = std::move(lookup->found);
  if (lookup->error == 0) return true;
  if (lookup->error == EAI_AGAIN)
    return Fail(failure, TKind::kUnknownHost, "the name '" + target.host + "' cannot be resolved just now",
                "is the name server reachable? The address itself works with -H, too");
  return Fail(failure, TKind::kUnknownHost, "unknown host '" + target.host + "'");
}

// An address needs no resolver, and asking one would cost the start its configuration files.
bool Resolve(const TTarget& target, long long limitMs, TAddresses& found, TFailure& failure) {
  const std::string port = std::to_string(target.port);
  if (LookUp(target.host, port, AI_NUMERICHOST, found) == 0) return true;
  return ResolveName(target, port, limitMs, found, failure);
}

int ConnectError(int fd) {
  int error = 0;
  socklen_t size = sizeof error;
  getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
  return error;
}

}  // namespace

std::string OwnAddress(const TTarget& target, long long timeoutMs) {
  TAddresses addresses(nullptr, freeaddrinfo);
  TFailure failure;
  if (!Resolve(target, timeoutMs, addresses, failure)) return "";
  // Connecting a datagram socket chooses the route and with it the address, no more.
  const TFd probe(socket(addresses->ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_storage own{};
  socklen_t size = sizeof own;
  if (!probe.IsOpen() || connect(probe.Get(), addresses->ai_addr, addresses->ai_addrlen) != 0) return "";
  if (getsockname(probe.Get(), reinterpret_cast<sockaddr*>(&own), &size) != 0) return "";
  char text[NI_MAXHOST];
  const int named =
      getnameinfo(reinterpret_cast<sockaddr*>(&own), size, text, sizeof text, nullptr, 0, NI_NUMERICHOST);
  return named == 0 ? text : "";
}

bool TLink::Late(const char* doing, TFailure& failure) const {
  if (deadline == 0 || MonotonicMs() < deadline) return false;
  Fail(failure, TKind::kTimeout, name + ": not through before the deadline, while " + doing,
       "--deadline gives a host more time");
  return true;
}

bool TLink::Wait(short events, long long timeoutMs, const char* doing, TFailure& failure) {
  const long long quiet = MonotonicMs() + timeoutMs;
  const long long end = deadline == 0 ? quiet : std::min(quiet, deadline);
  for (;;) {
    if (Late(doing, failure)) return false;
    pollfd entry{fd.Get(), events, 0};
    const long long left = std::max(0LL, end - MonotonicMs());
    const int ready = poll(&entry, 1, static_cast<int>(std::min(left, 86400000LL)));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR)
      return Fail(failure, TKind::kInternal, std::string("poll: ") + strerror(errno));
    if (ready == 0 && end == quiet)
      return Fail(failure, TKind::kTimeout,
                  name + ": nothing for " + MillisecondsText(static_cast<double>(timeoutMs)) + " while " + doing);
  }
}

// One address of the host.
bool TLink::ConnectTo(const addrinfo& address, long long timeoutMs, TFailure& failure) {
  fd = TFd(socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.IsOpen()) return Fail(failure, TKind::kUnreachable, name + ": " + strerror(errno));
  int error = connect(fd.Get(), address.ai_addr, address.ai_addrlen) == 0 ? 0 : errno;
  if (error == EINPROGRESS || error == EINTR) {
    if (!Wait(POLLOUT, timeoutMs, "connecting", failure)) return false;
    error = ConnectError(fd.Get());
  }
  if (error != 0)
    return Fail(failure, error == ETIMEDOUT ? TKind::kTimeout : TKind::kUnreachable, name + ": " + strerror(error));
  const int on = 1;
  (void)setsockopt(fd.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);  // only speed hangs on it
  return true;
}

bool TLink::Connect(const TTarget& target, long long timeoutMs, TFailure& failure) {
  name = target.Name();
  if (Late("connecting", failure)) return false;
  TAddresses addresses(nullptr, freeaddrinfo);
  const long long limit = deadline == 0 ? timeoutMs : std::min(timeoutMs, deadline - MonotonicMs());
  if (!Resolve(target, limit, addresses, failure)) return false;
  for (const addrinfo* at = addresses.get(); at != nullptr; at = at->ai_next)
    if (ConnectTo(*at, timeoutMs, failure)) return true;
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
    if (Late("sending", failure)) return false;
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
