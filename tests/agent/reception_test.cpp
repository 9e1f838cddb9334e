#include "agent/reception.h"

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <optional>
#include <vector>

#include "config/settings.h"
#include "net/sockets.h"
#include "protocol/tav_const.h"
#include "tests/net/peer.h"
#include "tests/protocol/vectors.h"

namespace {

constexpr int kTimeoutMs = 1000;

class Reception : public testing::Test {
 protected:
  Reception() {
    Twofish_initialise();
    Publish(kTimeoutMs);
  }
  static void Publish(int timeout) {
    TLock lock(optmutex);
    TAVSettings.password = "secret";
    TAVSettings.timeout = timeout;
    PublishSettings();
  }
  // The peer's end of a connection that has just been admitted.
  TFd Admit() {
    TFd peer;
    String error;
    EXPECT_EQ(kNetDone, PerformConnect(peer, "127.0.0.1", network.port, 1000, error));
    fcntl(peer.Get(), F_SETFL, O_NONBLOCK);
    TConnection whole;
    const int flags = SOCK_CLOEXEC | SOCK_NONBLOCK;
    if (reception->Admit(TFd(accept4(network.own.Get(), nullptr, nullptr, flags)), {}, whole)) ClientExecute(whole);
    return peer;
  }
  void Send(const TFd& peer, const std::string& bytes) {
    for (size_t done = 0; done < bytes.size();) {
      const ssize_t n = send(peer.Get(), &bytes[done], bytes.size() - done, MSG_NOSIGNAL);
      if (n > 0) done += static_cast<size_t>(n);
      for (epoll_event event; epoll_wait(epoll.Get(), &event, 1, 0) == 1;) {
        TConnection whole;
        if (reception->Readable(event.data.u64, whole)) ClientExecute(whole);
        if (n <= 0) break;
      }
      if (n <= 0 && !Open(peer)) return;
    }
  }
  static bool Open(const TFd& peer) {
    char byte;
    return recv(peer.Get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
  }
  // The text of the reply, up to the end of the connection.
  static std::string Reply(const TFd& peer) {
    std::string bytes(100, '\0');
    shutdown(peer.Get(), SHUT_WR);
    fcntl(peer.Get(), F_SETFL, 0);
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(0, recv(peer.Get(), &bytes[0], 100, MSG_WAITALL))));
    return bytes.size() < 4 ? "closed" : Std(DecodeData(Bytes(bytes.substr(4)), "a key"));
  }

  const TPeer network{SOCK_STREAM, nullptr};
  const TFd epoll{epoll_create1(EPOLL_CLOEXEC)};
  std::optional<TReception> reception{epoll.Get()};
};

TEST_F(Reception, HandsOverAWholePacketWhereverItIsCut) {
  const std::string packet = TPacket().Bytes();
  for (size_t at = 1; at <= packet.size(); at++) {
    const TFd peer = Admit();
    Send(peer, packet.substr(0, at));
    Send(peer, packet.substr(at));
    ASSERT_EQ("502\n\r", Reply(peer)) << at;
  }
}

TEST_F(Reception, DismissesAStrangerWhereHisPacketEnds) {
  void (*const changes[])(TPacket&) = {[](TPacket& p) { p.proof[15]++; }, [](TPacket& p) { p.signature[0]++; }};
  for (const auto change : changes) {
    TPacket packet;
    change(packet);
    const std::string bytes = packet.Bytes();
    const TFd peer = Admit();
    Send(peer, bytes.substr(0, bytes.size() - 1));
    EXPECT_TRUE(Open(peer));
    Send(peer, bytes.substr(bytes.size() - 1));
    EXPECT_EQ("closed", Reply(peer));
  }
}

TEST_F(Reception, LetsTheLongestSilentGoForANewOne) {
  rlimit wide, few = {64, RLIM_INFINITY};
  prlimit(0, RLIMIT_NOFILE, nullptr, &wide);
  few.rlim_max = wide.rlim_max;
  prlimit(0, RLIMIT_NOFILE, &few, nullptr);
  reception.emplace(epoll.Get());
  prlimit(0, RLIMIT_NOFILE, &wide, nullptr);
  ASSERT_TRUE(reception->Most() > 2) << reception->Most();
  ASSERT_TRUE(reception->Most() <= 32) << reception->Most();
  std::vector<TFd> peers;
  while (static_cast<int>(peers.size()) < reception->Most()) peers.push_back(Admit());
  Send(peers[0], "x");
  peers.push_back(Admit());
  EXPECT_TRUE(Open(peers[0])) << "he talked last";
  EXPECT_FALSE(Open(peers[1]));
  EXPECT_TRUE(Open(peers[2]));
  EXPECT_TRUE(reception->MakeRoom());
  EXPECT_FALSE(Open(peers[2]));
  EXPECT_TRUE(Open(peers.back()));
}

TEST_F(Reception, LetsTheSilentGoAfterTheTimeOutInWholeSeconds) {
  const TFd peer = Admit();
  const int ms = reception->MsUntilExpiry();
  EXPECT_TRUE(ms > kTimeoutMs) << ms;
  EXPECT_TRUE(ms <= kTimeoutMs + 1000) << ms;
  usleep(static_cast<useconds_t>(ms - 100) * 1000);
  reception->ExpireSilent();
  EXPECT_TRUE(Open(peer));
  usleep(200 * 1000);
  Publish(-1);
  reception->ExpireSilent();
  EXPECT_TRUE(Open(peer)) << "a negative time-out lets nobody go";
  Publish(kTimeoutMs);
  reception->ExpireSilent();
  EXPECT_FALSE(Open(peer));
}

TEST_F(Reception, BoundsWhatUnfinishedPacketsHold) {
  TPacket packet;
  packet.declared += 9 << 20;
  const std::string whole = packet.Bytes() + std::string(9 << 20, 'x'), part = whole.substr(0, whole.size() - 1);
  std::vector<TFd> peers;
  for (int i = 0; i < 3; i++) {  // what these held is given back
    peers.push_back(Admit());
    Send(peers[0], whole);
    EXPECT_EQ("502\n\r", Reply(peers[0]));
    Send(peers[0] = Admit(), part);
    peers.clear();
  }
  const TFd talker = Admit();
  Send(talker, "x");
  for (int i = 0; i < 3; i++) Send(peers.emplace_back(Admit()), part);
  EXPECT_FALSE(Open(peers[0])) << "three are too many";
  EXPECT_TRUE(Open(peers[1]));
  EXPECT_TRUE(Open(peers[2]));
  EXPECT_TRUE(Open(talker));
}

}  // namespace
