#include "agent/portmove.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <memory>

#include "core/clock.h"
#include "tests/net/peer.h"

namespace {

using TState = TPortMove::TState;

int FreePort() {
  return TPeer(SOCK_STREAM, nullptr).port;
}

int PortOf(const TFd& listener) {
  sockaddr_in address = {};
  socklen_t size = sizeof address;
  getsockname(listener.Get(), reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

TEST(PortMove, TriesThreeTimesASecondApartAndSaysOnceThatItFailed) {
  const TPeer taken(SOCK_STREAM, nullptr);
  const struct {
    long long nowMs;
    TState state;
  } rows[] = {
      {0, TState::kUnderWay},    {999, TState::kUnderWay},  {1000, TState::kUnderWay}, {1999, TState::kUnderWay},
      {2000, TState::kUnderWay}, {2999, TState::kUnderWay}, {3000, TState::kFailed},   {3000, TState::kGivenUp},
  };
  TPortMove move;
  TFd fresh;
  for (const auto& row : rows) {
    EXPECT_EQ(row.state, move.Step("127.0.0.1", taken.port, row.nowMs, fresh)) << row.nowMs;
    EXPECT_FALSE(fresh.IsOpen());
  }
  const int other = FreePort();  // begins another move, at once
  EXPECT_EQ(TState::kOpened, move.Step("127.0.0.1", other, 3000, fresh));
  EXPECT_EQ(other, PortOf(fresh));
}

TEST(PortMove, OpensOnceThePortIsFree) {
  auto taken = std::make_unique<TPeer>(SOCK_STREAM, nullptr);
  const int port = taken->port;
  TPortMove move;
  TFd fresh;
  EXPECT_EQ(TState::kUnderWay, move.Step("127.0.0.1", port, 0, fresh));
  taken.reset();
  EXPECT_EQ(TState::kUnderWay, move.Step("127.0.0.1", port, 999, fresh));
  EXPECT_EQ(TState::kOpened, move.Step("127.0.0.1", port, 1000, fresh));
}

TEST(PortMove, LooksANameUpOnAnotherThread) {
  const int port = FreePort();
  TPortMove move;
  TFd fresh;
  TState state = TState::kUnderWay;
  for (const long long end = MonotonicMs() + 10000; state == TState::kUnderWay && MonotonicMs() < end;) {
    state = move.Step("localhost", port, 0, fresh);
    poll(nullptr, 0, 1);
  }
  EXPECT_EQ(TState::kOpened, state);
  EXPECT_EQ(port, PortOf(fresh));
}

}  // namespace
