#include "net/sockio.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>

#include "core/clock.h"
#include "core/requester.h"

TDeadline TDeadline::Never() {
  TDeadline never;
  never.endUs = LLONG_MAX;
  return never;
}

TDeadline TDeadline::OfSilence(long long timeoutMs) {
  TDeadline silence(timeoutMs);
  silence.silenceUs = timeoutMs * 1000;
  return silence;
}

TDeadline::TDeadline(long long timeoutMs) : endUs(timeoutMs < 0 ? -1 : MonotonicUs() + timeoutMs * 1000) {}

int TDeadline::LeftMs() const {
  const long long leftMs = (endUs - MonotonicUs() + 999) / 1000;
  return static_cast<int>(std::clamp<long long>(leftMs, 0, INT_MAX));
}

void TDeadline::Progress() {
  if (silenceUs > 0) endUs = MonotonicUs() + silenceUs;
}

int WaitReady(int fd, short events, const TDeadline& deadline) {
  if (fd < 0 || !deadline.IsValid()) return -1;
  const int requester = RequesterFd() == fd ? -1 : RequesterFd();
  for (;;) {
    pollfd entries[2] = {{fd, events, 0}, {requester, 0, 0}};
    const int n = poll(entries, 2, deadline.LeftMs());
    if (n > 0) return entries[1].revents != 0 || (entries[0].revents & POLLNVAL) != 0 ? -1 : 1;
    if (n < 0 && errno != EINTR) return -1;
    if (n == 0 && deadline.LeftMs() == 0) return 0;
  }
}

TFd OpenSocket(int type) {
  TFd fresh(socket(AF_INET, type | SOCK_CLOEXEC, 0));
  if (fresh.Get() == 0) fresh.Reset(fcntl(0, F_DUPFD_CLOEXEC, 3));
  return fresh;
}

int SendWithin(int fd, const char* data, int length, TDeadline deadline, bool untilAnswer) {
  int sent = 0;
  while (sent < length) {
    const short answer = untilAnswer && sent > 0 ? POLLIN : 0;
    if (answer != 0 && WaitReady(fd, answer, TDeadline(0)) == 1) {
      errno = 0;
      break;
    }
    // Even a blocking socket must not hold the thread: only the wait below knows when to end.
    const ssize_t n = send(fd, data + sent, static_cast<size_t>(length - sent), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n >= 0) {
      sent += static_cast<int>(n);
      deadline.Progress();
      continue;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN) break;
    if (WaitReady(fd, static_cast<short>(POLLOUT | answer), deadline) != 1) {
      errno = 0;
      break;
    }
  }
  return sent > 0 ? sent : -1;
}

int ReceiveWithin(int fd, char* buffer, int size, const TDeadline& deadline) {
  while (WaitReady(fd, POLLIN, deadline) == 1) {
    // The wait may have been for a datagram that turns out damaged: without MSG_DONTWAIT that would block.
    const ssize_t n = recv(fd, buffer, static_cast<size_t>(size), MSG_DONTWAIT);
    if (n >= 0) return static_cast<int>(n);
    if (errno != EINTR && errno != EAGAIN) return -1;
  }
  errno = 0;
  return -1;
}

int ReceiveOnce(int fd, char* buffer, int size, long long timeoutMs, String& error) {
  const int received = ReceiveWithin(fd, buffer, size, TDeadline(timeoutMs));
  if (received >= 0) return received;
  if (errno != 0 && errno != ETIMEDOUT) {
    error = GetErrorStr(errno);
    return kNetNotReceived;
  }
  error = kTimeoutText;
  return kNetTimeout;
}
