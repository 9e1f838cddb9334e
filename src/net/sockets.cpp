#include "net/sockets.h"

#include <errno.h>
#include <limits.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdio.h>
#include <sys/ioctl.h>

#include <memory>
#include <utility>

#include "net/resolver.h"
#include "net/sockio.h"

namespace {

constexpr int kBacklog = 512;
constexpr int kHighestPort = 65535;

struct TAddressListFreer {
  void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using TAddressList = std::unique_ptr<addrinfo, TAddressListFreer>;

int SystemFailure(int code, String& error) {
  error = GetErrorStr(errno);
  return code;
}

const sockaddr* Generic(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

// A socket bound to the first address of the list that takes it.
TFd BindFirst(const addrinfo* list, socklen_t& addressLength) {
  for (const addrinfo* a = list; a != nullptr; a = a->ai_next) {
    TFd socket = OpenSocket(SOCK_STREAM);
    if (!socket.IsOpen()) continue;
    const int on = 1;
    (void)setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(socket.Get(), a->ai_addr, a->ai_addrlen) != 0) continue;
    addressLength = a->ai_addrlen;
    return socket;
  }
  return TFd();
}

// True while a connect that returned an error may still succeed; an interrupted one goes on by itself.
bool IsUnderWay(int connectError) {
  return connectError == EINPROGRESS || connectError == EALREADY || connectError == EISCONN ||
         connectError == EINTR;
}

int AwaitConnect(int fd, int timeoutMs, String& error) {
  const int ready = WaitReady(fd, POLLOUT, TDeadline(timeoutMs));
  if (ready == 0) {
    error = kTimeoutText;
    return kNetTimeout;
  }
  int outcome = 0;
  socklen_t length = sizeof outcome;
  if (ready != 1 || getsockopt(fd, SOL_SOCKET, SO_ERROR, &outcome, &length) != 0 || length != sizeof outcome) {
    return SystemFailure(kNetNotConnected, error);
  }
  if (outcome == 0) return kNetDone;
  errno = outcome;
  return SystemFailure(kNetNotConnected, error);
}

int ConnectSocket(int fd, const sockaddr_in& target, int timeoutMs, String& error) {
  const int rc = connect(fd, Generic(target), sizeof target);
  if (rc == 0 && timeoutMs == 0) return kNetDone;
  if (rc != 0 && !IsUnderWay(errno)) return SystemFailure(kNetNotConnected, error);
  return AwaitConnect(fd, timeoutMs == 0 ? INT_MAX : timeoutMs, error);  // the system itself gives up long before
}

// Sends what there is to send and receives when something is wanted.  Who takes only part of the data may have
// answered all the same; that is looked for at once, and the data count as sent.
int Exchange(int fd, int timeoutMs, const char* sendBuffer, char* receiveBuffer, int sendLength, int receiveSize,
             String& error) {
  int sent = 0;
  if (sendLength > 0) {
    const TDeadline deadline = timeoutMs == 0 ? TDeadline::Never() : TDeadline(timeoutMs);
    sent = SendWithin(fd, sendBuffer, sendLength, deadline, receiveSize > 0);
    if (sent < 0) return SystemFailure(kNetNotSent, error);
  }
  if (receiveSize < 1) return kNetDone;
  const bool cutShort = sent < sendLength;
  const bool reset = cutShort && errno == ECONNRESET;
  const int received = ReceiveOnce(fd, receiveBuffer, receiveSize, cutShort ? 0 : timeoutMs, error);
  // The system tells of a reset once: after the sending has met it, a socket reads as if it had been closed.
  if (reset && received == 0) return SystemFailure(kNetNotReceived, error);
  return received;
}

}  // namespace

int TcpListen(const char* host, int port, socklen_t& addressLength, String& error) {
  if (port < 0 || port > kHighestPort) {  // the lookup would take such a number modulo 65536
    error = gai_strerror(EAI_SERVICE);
    return 0;
  }
  char service[16];
  snprintf(service, sizeof service, "%d", port);
  return TcpListen(host, service, addressLength, error);
}

int TcpListen(const char* host, const char* service, socklen_t& addressLength, String& error) {
  error = "";
  addrinfo hints = {};
  hints.ai_flags = AI_PASSIVE;
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const bool everywhere = host == nullptr || *host == '\0';
  const int rc = getaddrinfo(everywhere ? nullptr : host, service, &hints, &found);
  if (rc != 0) {
    error = gai_strerror(rc);
    return 0;
  }
  const TAddressList list(found);

  socklen_t boundLength = 0;
  TFd socket = BindFirst(list.get(), boundLength);
  if (!socket.IsOpen()) {
    error = "socket() or bind() error";
    return 0;
  }
  if (listen(socket.Get(), kBacklog) != 0) {
    error = "listen() error";
    return 0;
  }
  addressLength = boundLength;
  return socket.Release();
}

int PerformConnect(TFd& socket, const char* host, int port, int timeoutMs, String& error) {
  error = "";
  socket.Reset();
  sockaddr_in target;
  const int resolved = GetHostAddress(host, port, target, error);
  if (resolved != kNetDone) return resolved;

  TFd fresh = OpenSocket(SOCK_STREAM);
  if (!fresh.IsOpen()) return SystemFailure(kNetNoSocket, error);
  int on = 1;
  if (timeoutMs != 0 && ioctl(fresh.Get(), FIONBIO, &on) != 0) {
    error = String("ioctl error - ") + GetErrorStr(errno);
    return kNetNoSocket;
  }
  const int connected = ConnectSocket(fresh.Get(), target, timeoutMs, error);
  if (connected == kNetDone) socket = std::move(fresh);
  return connected;
}

int TCPConnect(const char* host, int port, int timeoutMs, String& error) {
  TFd socket;
  return PerformConnect(socket, host, port, timeoutMs, error);
}

int SendReceiveTCPPacket(const char* host, int port, int timeoutMs, const char* sendBuffer, char* receiveBuffer,
                         int sendLength, int receiveSize, String& error) {
  TFd socket;
  const int connected = PerformConnect(socket, host, port, timeoutMs, error);
  if (connected != kNetDone) return connected;

  return Exchange(socket.Get(), timeoutMs, sendBuffer, receiveBuffer, sendLength, receiveSize, error);
}

int SendReceiveUDPPacket(const char* host, int port, int timeoutSeconds, const char* sendBuffer,
                         char* receiveBuffer, int sendLength, int receiveSize, String& error) {
  error = "";
  sockaddr_in target;
  const int resolved = GetHostAddress(host, port, target, error);
  if (resolved != kNetDone) return resolved;

  const TFd socket = OpenSocket(SOCK_DGRAM);
  if (!socket.IsOpen()) return SystemFailure(kNetNoSocket, error);
  ssize_t sent = 0;
  if (sendLength > 0) {
    do {
      sent = sendto(socket.Get(), sendBuffer, static_cast<size_t>(sendLength), MSG_NOSIGNAL, Generic(target),
                    sizeof target);
    } while (sent < 0 && errno == EINTR);
    if (sent < 0) return SystemFailure(kNetNotSent, error);
  }
  if (receiveSize < 1) return static_cast<int>(sent);
  return ReceiveOnce(socket.Get(), receiveBuffer, receiveSize, timeoutSeconds * 1000LL, error);
}
