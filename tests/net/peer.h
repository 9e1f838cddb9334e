// A real counterpart on 127.0.0.1: plays its script on one TCP connection, or on its UDP socket, in its own thread.
#pragma once

#include <arpa/inet.h>
#include <signal.h>
#include <sys/socket.h>

#include <functional>
#include <string>
#include <thread>

#include "core/closers.h"

struct TPeer {
  TPeer(int type, const std::function<void(int fd)>& script) : own(socket(AF_INET, type, 0)) {
    sockaddr_in address = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t length = sizeof address;
    bind(own.Get(), reinterpret_cast<sockaddr*>(&address), length);
    getsockname(own.Get(), reinterpret_cast<sockaddr*>(&address), &length);
    port = ntohs(address.sin_port);
    if (type == SOCK_STREAM) listen(own.Get(), 0);
    play = std::thread([this, type, script] {
      sigset_t all;
      pthread_sigmask(SIG_BLOCK, (sigfillset(&all), &all), nullptr);  // signals are for the side under test
      const TFd accepted(script && type == SOCK_STREAM ? accept(own.Get(), nullptr, nullptr) : -1);
      if (script) script(accepted.IsOpen() ? accepted.Get() : own.Get());
    });
  }
  ~TPeer() {
    shutdown(own.Get(), SHUT_RDWR);  // nobody may have come
    if (play.joinable()) play.join();
  }
  int port = 0;
  TFd own;
  std::thread play;
};

// Reads `size` bytes, or up to the end, or one datagram, then sends the answer back, if any.  Without reading (0)
// it comes as soon as there are data, and the close behind it is a reset.
inline std::string Take(int fd, size_t size, const std::string& answer = "") {
  std::string got(size, '\0');
  sockaddr from;
  socklen_t length = sizeof from;
  const ssize_t n = recvfrom(fd, &got[0], size, MSG_WAITALL, &from, &length);
  if (!answer.empty()) sendto(fd, answer.data(), answer.size(), MSG_NOSIGNAL, &from, length);
  return got.substr(0, n > 0 ? static_cast<size_t>(n) : 0);
}
