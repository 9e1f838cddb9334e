// Probes and sends against real counterparts on the loopback interface.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <filesystem>
#include <functional>
#include <future>
#include <regex>

#include "agent_fixture.h"

namespace {

const std::string kNoHost(70, 'a');  // a label too long for any name server to be asked

std::future<std::string> Asking(const Agent& agent, const std::string& request) {
  return std::async(std::launch::async, [&agent, request] { return agent.Ask(request); });
}

std::string To(const char* command, int port) {
  return std::string(command) + "|127.0.0.1|" + std::to_string(port) + "|";
}

// Takes one datagram and sends `answer` to where it came from.
std::string TakeAndAnswer(const Socket& server, const std::string& answer) {
  char data[512];
  sockaddr_in from{};
  socklen_t length = sizeof from;
  const ssize_t n =
      recvfrom(server.Descriptor(), data, sizeof data, 0, reinterpret_cast<sockaddr*>(&from), &length);
  sendto(server.Descriptor(), answer.data(), answer.size(), 0, reinterpret_cast<sockaddr*>(&from), length);
  return std::string(data, n > 0 ? static_cast<size_t>(n) : 0);
}

TEST(Network, ProbesAnswerWithWhatThePeerSays) {
  Agent agent("");
  const Socket server = ServeTcp(), datagrams = ServeUdp(), mute = ServeUdp();
  std::future<std::string> answer = Asking(agent, To("TEST-TCP", server.Port()) + "0|PING%0D%0A|6");
  const Socket client = Accept(server);
  EXPECT_EQ("PING\r\n", client.Receive());
  EXPECT_EQ("", client.Receive(0.2)) << "it waits";
  client.Send("PONG\r\n");
  EXPECT_TRUE(std::regex_match(answer.get(), std::regex("200\n[0-9]+\nPONG%0D%0A")));
  agent.Expect("TEST-TCP|" + kNoHost + "|80|1000||0", "301|Cannot resolve server name to IP address|-2");

  std::future<std::string> silent = Asking(agent, To("TEST-UDP", mute.Port()) + "300|2|hey|10");
  answer = Asking(agent, To("TEST-UDP", datagrams.Port()) + "5000|1|a%0Ab|3");
  EXPECT_EQ("a\nb", TakeAndAnswer(datagrams, "yes, more"));
  EXPECT_TRUE(std::regex_match(answer.get(), std::regex("200\n[0-9]+\nyes")));
  EXPECT_EQ("301\nTimeout\n0", silent.get());
  EXPECT_EQ("heyhey", mute.Receive(1) + mute.Receive(1) + mute.Receive(0.1));
}

TEST(Network, SendsOneOrTwoPieces) {
  Agent agent("tcpudpaction=1\n");
  const Socket server = ServeTcp(), datagrams = ServeUdp();
  std::future<std::string> sent = Asking(agent, To("ACT-TCPUDPsend", server.Port()) + "0|one%0A|1|two");
  const Socket client = Accept(server);
  EXPECT_EQ("one\n", client.Receive());
  const Stopwatch pause;
  EXPECT_EQ("two", client.Receive());
  EXPECT_GT(pause.Seconds(), 0.7);
  EXPECT_EQ("200\nData has been sent", sent.get());
  EXPECT_TRUE(client.EndsSilently());

  const Stopwatch watch;
  agent.Expect(To("ACT-TCPUDPsend", FreePort()) + "0|x|0|", "301");
  agent.Expect(To("ACT-TCPUDPsend", FreePort()) + "1|x|0|", "200|Data has been sent");
  agent.ExpectRows(To("ACT-TCPUDPsend", datagrams.Port()), R"(1|data|60| => 200|Data has been sent
    0||0| => 501|Wrong parameter ; 0|x|x| => 501|Wrong parameter)");
  agent.Expect("ACT-TCPUDPsend||9|0|x|0|", "501|Wrong parameter");
  EXPECT_LT(watch.Seconds(), 30) << "without second data nothing waits";
  EXPECT_EQ("data", datagrams.Receive());
}

// Sends a request and resets the connection once it is being carried out.
void AskAndReset(const Agent& agent, const std::string& request, const std::function<bool()>& begun) {
  const std::string text = std::regex_replace(request, std::regex("\\|"), "\r\n") + "\r\n";
  const Socket peer = Connect(agent.port);
  peer.Send(Seal(text, agent.password, "session").Bytes());
  EXPECT_TRUE(WaitFor(begun)) << request;
  const linger reset = {1, 0};
  setsockopt(peer.Descriptor(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
}

TEST(Network, AResetEndsTheSessionAndAHalfClosedPeerIsWaitedFor) {
  Agent agent("tcpudpaction=1\ndelayforscripts=2000000000\n");
  const Socket server = ServeTcp(), mute = ServeUdp();
  const auto busy = [&] { return agent.Ask("GetInfo").find("\nActiveConnections=2\n") != std::string::npos; };
  const auto alone = [&] { return agent.Ask("GetInfo").find("\nActiveConnections=1\n") != std::string::npos; };
  Socket client;
  const auto connected = [&] { return (client = Accept(server)).Descriptor() >= 0; };
  const std::string probe = To("TEST-UDP", mute.Port()), send = To("ACT-TCPUDPsend", server.Port()) + "0|";
  const std::string huge(4 << 20, 'x');  // more than the buffers between the two hold
  const int window = 4096;
  setsockopt(server.Descriptor(), SOL_SOCKET, SO_RCVBUF, &window, sizeof window);
  const std::tuple<std::string, std::function<bool()>> rows[] = {
      {probe + "-5000|200000000|x|9", busy},
      {probe + "2000000000|1|x|9", busy},
      {To("TEST-TCP", server.Port()) + "2000000000|x|9", connected},
      {send + "one|2000000000|two", connected},
      {send + huge + "|0|", connected},
      {"TEST-ShellScript|/bin/sh %script%|touch @/run||5|0", busy},
  };
  for (const auto& [request, begun] : rows) {
    AskAndReset(agent, agent.At(request), begun);
    EXPECT_TRUE(WaitFor(alone)) << request.substr(0, 60);
  }
  EXPECT_FALSE(std::filesystem::exists(agent.At("@/run")));
  AskAndReset(agent, send + "one|3|two", connected);
  EXPECT_EQ("one", client.Receive());
  EXPECT_TRUE(client.EndsSilently()) << "nothing more is sent for who has gone";

  const Socket half = Connect(agent.port);
  half.Send(Seal("TEST-UDP\r\n127.0.0.1\r\n" + std::to_string(mute.Port()) + "\r\n1000\r\n2\r\nx\r\n9\r\n",
                 agent.password, "session")
                .Bytes());
  shutdown(half.Descriptor(), SHUT_WR);
  EXPECT_EQ("301\nTimeout\n0", ReadReply(half, "session"));
}

TEST(Network, APortOutOfRangeEndsTheStartWithFour) {
  for (const char* port : {"70000", "-5"}) {
    Agent agent;
    agent.Write("tav.cfg", std::string("port=") + port + "\n" + agent.Defaults());
    EXPECT_EQ(4, agent.Run({"-i", "tav.cfg"})) << port;
    const std::string shown = "Sock testing .. TCP listen error:\nServname not supported for ai_socktype\n\n";
    EXPECT_EQ(shown, agent.Console().substr(std::min(agent.Console().size(), agent.Console().find("Sock"))))
        << port;
  }
}

TEST(Network, SyslogSendsOneDatagram) {
  Agent agent("syslogaction=1\n");
  const Socket server = ServeUdp();
  agent.ExpectRows(To("ACT-Syslog", server.Port()), R"(
    1|5|disk full%0Anow => 200|Syslog: Data to 127.0.0.1 has been sent ; 1|8|x => 501|Wrong parameter
    1|-1|x => 501|Wrong parameter ; x|1|x => 501|Wrong parameter)");
  agent.Expect("ACT-Syslog|" + kNoHost + "|514|1|5|x", "200|Syslog: Data to " + kNoHost + " has been sent");
  const std::string datagram = server.Receive();
  EXPECT_TRUE(std::regex_match(datagram, std::regex("<13>[A-Z][a-z]{2}[ 123][0-9] [0-2][0-9]:[0-5][0-9]:[0-5][0-9] "
                                                    "[0-9]+(\\.[0-9]+){3} ZO TAV: disk full\nnow")))
      << datagram;
}

}  // namespace
