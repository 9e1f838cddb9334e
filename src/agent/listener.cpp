#include "agent/listener.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <exception>

#include "config/settings.h"
#include "net/sockets.h"

namespace {

TFd ListenOnce(const String& host, int port, String& error) {
  if (port == 0) return TFd();  // would be whatever port the system picks, and nobody would find the agent there
  socklen_t addressLength = 0;
  const int fd = TcpListen(host.Length() > 0 ? host.CStr() : nullptr, port, addressLength, error);
  if (fd <= 0) return TFd();
  // A connection that is gone before it is accepted must not make accept wait.
  (void)fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
  // Its connections inherit it: a peer that has vanished without a word must not hold an upgrade for ever.
  const int on = 1;
  (void)setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
  return TFd(fd);
}

}  // namespace

TFd TryListening(const String& host, int port, String& error) {
  try {
    return ListenOnce(host, port, error);
  } catch (const std::exception&) {
    return TFd();
  }
}

TFd Listen(String& error) {
  for (int attempt = 0; attempt < kListenAttempts; ++attempt) {
    const TSettingsPtr settings = SettingsInForce();
    TFd fd = TryListening(settings->host, settings->port, error);
    if (fd.IsOpen()) return fd;
    sleep(1);
  }
  return TFd();
}
