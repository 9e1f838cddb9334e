#include "net/syncsocket.h"

#include <errno.h>
#include <poll.h>
#include <sys/socket.h>

#include <utility>

#include "net/resolver.h"
#include "net/sockets.h"
#include "net/sockio.h"

namespace {

constexpr int kLargestRead = 20480;
constexpr int kLookMs = 5;

}  // namespace

int TSyncSocket::Connect(const char* host, int port, int timeoutMs) {
  return kind == kTCP ? PerformConnect(socket, host, port, timeoutMs, error) : ConnectUDP(host, port);
}

int TSyncSocket::ConnectUDP(const char* host, int port) {
  Disconnect();
  sockaddr_in target;
  const int resolved = GetHostAddress(host, port, target, error);
  if (resolved != kNetDone) return resolved;

  TFd fresh = OpenSocket(SOCK_DGRAM);
  if (!fresh.IsOpen()) {
    error = GetErrorStr(errno);
    return kNetNoSocket;
  }
  if (connect(fresh.Get(), reinterpret_cast<const sockaddr*>(&target), sizeof target) != 0) {
    error = GetErrorStr(errno);
    return kNetNotConnected;
  }
  socket = std::move(fresh);
  return kNetDone;
}

bool TSyncSocket::Connected() const {
  return WaitReady(socket.Get(), POLLIN, TDeadline(kLookMs)) >= 0;
}

int TSyncSocket::SendBuf(const char* data, int length, int /*timeoutMs*/) {
  error = "";
  if (length < 1) return 0;
  const int sent = SendWithin(socket.Get(), data, length, TDeadline::Never(), false);
  if (sent > 0) return sent;
  error = GetErrorStr(errno);
  return kNetNotSent;
}

int TSyncSocket::SendString(const String& text, int timeoutMs) {
  return SendBuf(text.Data(), text.Length(), timeoutMs);
}

int TSyncSocket::ReadString(String& text, int timeoutMs) {
  error = "";
  text.SetLength(kLargestRead);
  const int received = ReceiveOnce(socket.Get(), text.Data(), kLargestRead, timeoutMs, error);
  text.SetLength(received > 0 ? received : 0);
  return received;
}

void TSyncSocket::Disconnect() {
  error = "";
  socket.Reset();
}
