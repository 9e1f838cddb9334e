#include "checks/nettests.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <vector>

#include "tests/checks/replies.h"
#include "tests/net/peer.h"

// `want` is the number of seconds that the test takes, and its reply, in which the milliseconds read "ms".
static void Expect(const std::string& want, int type, int port, const std::string& parameters) {
  const std::string request = "127.1\n" + std::to_string(port) + "\n" + parameters;
  const auto start = std::chrono::steady_clock::now();
  std::string text = ReplyOf(type == SOCK_STREAM ? ProcessTest_TCP : ProcessTest_UDP, request);
  const long late = (std::chrono::steady_clock::now() - start) / std::chrono::seconds(1) - (want[0] - '0');
  EXPECT_TRUE(late >= 0) << want << ", late " << late;
  EXPECT_TRUE(late < 3) << want << ", late " << late;
  if (text.rfind("200\n", 0) == 0) text.replace(4, text.find('\n', 4) - 4, "ms");
  EXPECT_EQ(want.substr(3), text) << parameters.substr(0, 30);
}

// A thousand open descriptors and a signal every few milliseconds change nothing.
TEST(NetTests, ReportTheAnswerOrWhyThereIsNone) {
  std::vector<TFd> many;
  for (int i = 0; i < 1100; ++i) many.emplace_back(fcntl(0, F_DUPFD_CLOEXEC, 3));
  signal(SIGALRM, [](int) {});
  ualarm(7000, 7000);
  const std::string binary("a\0b\r\n", 5), got("0: 200\nms\na\0b%0D%0A\n", 20), much(6 << 20, 'x');
  const std::string most = "0: 200\nms\n" + much.substr(0, 8192) + "\n", wrong = "0: 501\nWrong parameter";
  const std::tuple<int, std::string, size_t, std::string, std::string> rows[] = {
      {SOCK_STREAM, "0\n\n0\n", 0, "", "0: 200\nms\n\n"},
      {SOCK_STREAM, "600\na%0Ab\n9\n", 3, binary, got},
      {SOCK_STREAM, "600\nabc\n99999\n", 3, much.substr(0, 9999), most},
      {SOCK_STREAM, "600\nabc\n9\n", 3, "", "0: 301\n\n0\n"},          // closes
      {SOCK_STREAM, "1000\nabc\n9\n", 9, "", "1: 301\nTimeout\n0\n"},  // is silent
      {SOCK_STREAM, "-1\nabc\n9\n", 3, binary, "0: 301\n\n-6\n"},
      {SOCK_STREAM, "4000\n" + much + "\n9\n", much.size(), binary, got},  // takes all of it
      {SOCK_STREAM, "9000\n" + much + "\n9\n", 0, binary, got},            // takes nothing, answers, resets
      {SOCK_STREAM, "9000\n" + much + "\n9\n", 9, "", "0: 301\n\n-5\n"},   // resets without a word
      {SOCK_STREAM, "9000\n" + much + "\n0\n", 9, "", "0: 200\nms\n\n"},
      {SOCK_STREAM, "x\n\n0\n", 0, "", wrong},
      {SOCK_DGRAM, "300\n1\na%0Ab\n9\n", 3, binary, got},
      {SOCK_DGRAM, "300\n2\nabc\n9\n", 3, "", "2: 301\nTimeout\n0\n"},
      {SOCK_DGRAM, "-5000\n1\nabc\n9\n", 3, "", "0: 301\nTimeout\n0\n"},
      {SOCK_DGRAM, "300\n1\nabc\n0\n", 3, "", "0: 200\nms\n\n"},
      {SOCK_DGRAM, "300\n-1\nabc\n9\n", 3, binary, "0: 301\n\n0\n"},
      {SOCK_DGRAM, "300\n0\nabc\n9\n", 0, "", wrong},
      {SOCK_DGRAM, "300\n1\n\n9\n", 0, "", wrong},
      {SOCK_DGRAM, "300\n1\n" + much + "\n9\n", 0, "", "0: 301\n\n-4\n"},
  };
  for (const auto& [type, parameters, takes, answer, reply] : rows) {
    const TPeer peer(type, [size = takes, text = answer](int fd) { Take(fd, size, text); });
    Expect(reply, type, peer.port, parameters);
  }
  std::promise<void> over;
  const auto holds = [until = over.get_future().share()](int fd, const std::string& greeting) {
    Take(fd, 9, greeting);
    until.wait();
  };
  const TPeer greets(SOCK_STREAM, [&](int fd) { holds(fd, binary); });
  const TPeer mute(SOCK_STREAM, [&](int fd) { holds(fd, ""); });
  Expect(got, SOCK_STREAM, greets.port, "9000\n" + much + "\n9\n");  // takes no more, and stays
  Expect("1: 301\nTimeout\n0\n", SOCK_STREAM, mute.port, "1000\n" + much + "\n9\n");
  const int closed = TPeer(SOCK_STREAM, nullptr).port;
  Expect("0: 301\n\n-6\n", SOCK_STREAM, closed, "600\n\n0\n");
  const TPeer deaf(SOCK_STREAM, nullptr);  // its queue holds one connection, it drops the second
  Expect("1: 200\nms\n\n", SOCK_STREAM, deaf.port, "1000\n" + much + "\n0\n");
  Expect("1: 301\nTimeout\n0\n", SOCK_STREAM, deaf.port, "1500\n\n0\n");
  over.set_value();
  ualarm(0, 0);
}
