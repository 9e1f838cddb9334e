#include "net/sockio.h"

#include <gtest/gtest.h>
#include <poll.h>

#include "core/clock.h"
#include "core/requester.h"
#include "net/sockets.h"
#include "tests/net/peer.h"

namespace {

TFd Connect(const TPeer& peer) {
  TFd socket;
  String error;
  EXPECT_EQ(kNetDone, PerformConnect(socket, "127.0.0.1", peer.port, 1000, error));
  return socket;
}

TEST(SendWithin, GivesASilentPeerUpAndNotASlowOne) {
  constexpr int kSilenceMs = 700, kReads = 12, kReadEveryMs = 100, kBuffer = 32 * 1024;
  const std::string data(1200000, 'x');
  const TPeer slow(SOCK_STREAM, [&](int fd) {
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kBuffer, sizeof kBuffer);
    for (int i = 0; i < kReads; i++) {
      poll(nullptr, 0, kReadEveryMs);
      Take(fd, data.size() / kReads);
    }
    pollfd end = {fd, POLLRDHUP, 0};
    poll(&end, 1, 10000);
  });
  const TFd socket = Connect(slow);
  setsockopt(socket.Get(), SOL_SOCKET, SO_SNDBUF, &kBuffer, sizeof kBuffer);
  const linger reset = {1, 0};  // its close ends the peer's wait, whatever is still under way
  setsockopt(socket.Get(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
  const int size = static_cast<int>(data.size());
  const long long begin = MonotonicMs();
  EXPECT_EQ(size, SendWithin(socket.Get(), data.data(), size, TDeadline::OfSilence(kSilenceMs), false));
  EXPECT_GT(MonotonicMs() - begin, kSilenceMs);
  EXPECT_GT(size, SendWithin(socket.Get(), data.data(), size, TDeadline::OfSilence(kSilenceMs), false));
  EXPECT_EQ(0, errno);
}

TEST(ReceiveWithin, ReadsWhatTheRequesterSentBeforeHeReset) {
  const TPeer gone(SOCK_STREAM, [](int fd) {
    Take(fd, 1);  // he is connected: a reset before that would refuse him
    const linger now = {1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    send(fd, "last", 4, 0);
  });
  const TFd socket = Connect(gone);
  const TRequester requester(socket.Get());
  char text[8];
  ASSERT_EQ(1, send(socket.Get(), "?", 1, 0));
  for (const long long end = MonotonicMs() + 5000; !RequesterGone() && MonotonicMs() < end;) poll(nullptr, 0, 1);
  EXPECT_TRUE(RequesterGone());
  EXPECT_EQ(4, ReceiveWithin(socket.Get(), text, sizeof text, TDeadline(1000)));
  EXPECT_EQ(-1, ReceiveWithin(socket.Get(), text, sizeof text, TDeadline(1000)));
}

}  // namespace
