// Bare programs: what the machine itself gives for the work that the agent does, to be measured beside it.
//
//   tav_limits epoll PORT REQUEST_BYTES REPLY_BYTES
//     serves on 127.0.0.1 until it is killed: receives one packet of that size, answers one, closes.  One thread,
//     one epoll instance, nothing decrypted, checked or counted.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <string>
#include <vector>

#include "core/closers.h"

namespace {

constexpr int kEvents = 256;
constexpr int kBacklog = 512;

TFd ListenOn(int port) {
  TFd listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(listener.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return TFd();
  return listen(listener.Get(), kBacklog) == 0 ? std::move(listener) : TFd();
}

void Watch(int epoll, int fd) {
  epoll_event event = {};
  event.events = EPOLLIN;
  event.data.fd = fd;
  epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event);
}

void AcceptAll(int epoll, int listener) {
  for (;;) {
    const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) return;
    Watch(epoll, fd);
  }
}

// A packet of this size comes whole, and its answer goes out whole.
void Answer(int fd, std::vector<char>& request, const std::string& reply) {
  const TFd connection(fd);
  if (recv(fd, request.data(), request.size(), 0) <= 0) return;
  (void)!send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
}

[[noreturn]] void Serve(int listener, size_t requestBytes, size_t replyBytes) {
  const TFd epoll(epoll_create1(EPOLL_CLOEXEC));
  Watch(epoll.Get(), listener);
  std::vector<char> request(requestBytes);
  std::string reply(replyBytes, 'x');
  const unsigned length = static_cast<unsigned>(replyBytes - sizeof length);
  memcpy(&reply[0], &length, sizeof length);
  for (;;) {
    epoll_event events[kEvents];
    const int n = epoll_wait(epoll.Get(), events, kEvents, -1);
    for (int i = 0; i < n; ++i) {
      if (events[i].data.fd == listener) {
        AcceptAll(epoll.Get(), listener);
      } else {
        Answer(events[i].data.fd, request, reply);
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5 || strcmp(argv[1], "epoll") != 0 || atoi(argv[4]) < 4) {
    fprintf(stderr, "usage: %s epoll PORT REQUEST_BYTES REPLY_BYTES\n", argv[0]);
    return 64;
  }
  const TFd listener = ListenOn(atoi(argv[2]));
  if (!listener.IsOpen()) {
    perror("listen");
    return 1;
  }
  Serve(listener.Get(), static_cast<size_t>(atoi(argv[3])), static_cast<size_t>(atoi(argv[4])));
}
