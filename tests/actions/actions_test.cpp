#include <gtest/gtest.h>

#include <regex>

#include "actions/extcommand.h"
#include "actions/netactions.h"
#include "core/clock.h"
#include "tests/checks/replies.h"
#include "tests/net/peer.h"

namespace {

TEST(Actions, AnswerWithoutAPeer) {
  const std::string wrong = "501\nWrong parameter", gone = "301\n", done = "200\nData has been sent";
  const std::tuple<THandler, const char*, std::string> rows[] = {
      {ProcessAct_ExternalCmd, "sh -c 'pwd | grep -qx /usr'\n/usr\n0\n0\n", "200\n0\n"},
      {ProcessAct_ExternalCmd, "sh -c 'exit 3'\n\n0\n0\n", "200\n3\n"},
      {ProcessAct_ExternalCmd, "sleep 30\n\n0\n-5000\n", "301\nabnormal termination"},
      {ProcessAct_ExternalCmd, "true\n\nx\n0\n", wrong},
      {ProcessAct_ExternalCmd, "true\n\n0\nx\n", wrong},
      {ProcessAct_ExternalCmd, "\n\n0\n0\n", "501\nCommand line to execute is not specified"},
      {ProcessAct_TCPSend, "127.1\n1\n0\nx\n0\n\n", "301\n"},
      {ProcessAct_TCPSend, "127.1\n1\n1\nx\n0\n\n", done},
      {ProcessAct_TCPSend, "\n9\n1\nx\n0\n\n", wrong},
      {ProcessAct_TCPSend, "127.1\nx\n1\nx\n0\n\n", wrong},
      {ProcessAct_TCPSend, "127.1\n9\n1\n\n0\n\n", wrong},
      {ProcessAct_TCPSend, "127.1\n9\n1\nx\nx\n\n", wrong},
      {ProcessAct_Syslog, "\n514\n1\n5\nx\n", wrong},
      {ProcessAct_Syslog, "127.1\n514\n1\n8\nx\n", wrong},
      {ProcessAct_Syslog, "127.1\n514\n1\n-1\nx\n", wrong},
      {ProcessAct_Syslog, "127.1\n514\nx\n5\nx\n", wrong},
  };
  for (const auto& [handler, parameters, reply] : rows)
    EXPECT_EQ(reply, ReplyOf(handler, parameters)) << parameters;
  const std::string nowhere(70, 'a');  // a label too long for any name server to be asked
  EXPECT_EQ("200\nSyslog: Data to " + nowhere + " has been sent",
            ReplyOf(ProcessAct_Syslog, nowhere + "\n514\n1\n5\nx\n"));
}

TEST(Actions, SendWhatIsAskedForAndTheSecondDataAfterTheirDelay) {
  std::string first, second, sent, logged;
  long long pause = 0;
  {
    const TPeer stream(SOCK_STREAM, [&](int fd) {
      first = Take(fd, 4);
      const long long start = MonotonicMs();
      second = Take(fd, 9);
      pause = MonotonicMs() - start;
    });
    const TPeer datagrams(SOCK_DGRAM, [&](int fd) { sent = Take(fd, 99); });
    const TPeer log(SOCK_DGRAM, [&](int fd) { logged = Take(fd, 99); });
    const auto to = [](const TPeer& peer) { return "127.0.0.1\n" + std::to_string(peer.port) + "\n"; };
    const std::string done = "200\nData has been sent";
    EXPECT_EQ(done, ReplyOf(ProcessAct_TCPSend, to(stream) + "0\none%0A\n1\ntwo\n"));
    EXPECT_EQ(done, ReplyOf(ProcessAct_TCPSend, to(datagrams) + "1\ndata\n2000000000\n\n")) << "no second data";
    EXPECT_EQ("200\nSyslog: Data to 127.0.0.1 has been sent",
              ReplyOf(ProcessAct_Syslog, to(log) + "1\n5\ndisk full%0Anow\n"));
  }
  EXPECT_EQ("one\n|two|data", first + "|" + second + "|" + sent);
  EXPECT_NEAR(1000, static_cast<double>(pause), 500);
  EXPECT_TRUE(std::regex_match(logged, std::regex("<13>[A-Z][a-z]{2}[ 123][0-9] [0-2][0-9](:[0-5][0-9]){2} "
                                                  "[0-9]+(\\.[0-9]+){3} ZO TAV: disk full\nnow")))
      << logged;
}

}  // namespace
