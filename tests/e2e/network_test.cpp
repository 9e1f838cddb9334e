// Probes and sends against real counterparts on the loopback interface, and what a peer that goes puts an end to.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <filesystem>
#include <functional>

#include "agent_fixture.h"

namespace {

const std::string kNoHost(70, 'a');  // a label too long for any name server to be asked

std::string To(const char* command, int port) {
  return std::string(command) + "|127.0.0.1|" + std::to_string(port) + "|";
}

TEST(Network, ProbesWaitForAnAnswer) {
  Agent agent("");
  const Socket server = ServeTcp();
  std::future<std::string> answer = agent.Asking(To("TEST-TCP", server.Port()) + "0|PING%0D%0A|6");
  const Socket client = Accept(server);
  EXPECT_EQ("PING\r\n", client.Receive());
  EXPECT_EQ("", client.Receive(0.2)) << "a time-out of 0 is the default";
  client.Send("PONG\r\n");
  EXPECT_TRUE(Matches(answer.get(), "~200|[0-9]+|PONG%0D%0A"));
  agent.Expect("TEST-TCP|" + kNoHost + "|80|1000||0", "301|Cannot resolve server name to IP address|-2");

  const Socket mute = ServeUdp();
  agent.Expect(To("TEST-UDP", mute.Port()) + "300|2|hey|10", "301|Timeout|0");
  EXPECT_EQ("heyhey", mute.Receive(1) + mute.Receive(1) + mute.Receive(0.1));
}

// Sends a request and resets the connection once it is being carried out.
void AskAndReset(const Agent& agent, const std::string& request, const std::function<bool()>& begun) {
  const Socket peer = agent.Send(request);
  EXPECT_TRUE(WaitFor(begun)) << request.substr(0, 60);
  const linger reset = {1, 0};
  setsockopt(peer.Descriptor(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
}

TEST(Network, AResetEndsTheSessionAndAHalfClosedPeerIsWaitedFor) {
  Agent agent("tcpudpaction=1\ndelayforscripts=2000000000\n");
  const Socket server = ServeTcp(), mute = ServeUdp();
  const auto busy = [&] { return agent.Tells("ActiveConnections=2"); };
  Socket client;
  const auto connected = [&] { return (client = Accept(server)).Descriptor() >= 0; };
  const std::string probe = To("TEST-UDP", mute.Port()), send = To("ACT-TCPUDPsend", server.Port()) + "0|";
  const std::string huge(400000, 'x');  // with so small a window and segments more than the buffers between hold
  const int window = 4096, segment = 500;
  setsockopt(server.Descriptor(), SOL_SOCKET, SO_RCVBUF, &window, sizeof window);
  setsockopt(server.Descriptor(), IPPROTO_TCP, TCP_MAXSEG, &segment, sizeof segment);
  const std::tuple<std::string, std::function<bool()>> rows[] = {
      {probe + "-5000|200000000|x|9", busy},
      {probe + "2000000000|1|x|9", busy},
      {To("TEST-TCP", server.Port()) + "2000000000|x|9", connected},
      {send + "one|2000000000|two", connected},
      {send + huge + "|0|", connected},
      {"TEST-ShellScript|/bin/sh %script%|touch @/run||5|0", busy},
  };
  for (const auto& [request, begun] : rows) {
    AskAndReset(agent, request, begun);
    EXPECT_TRUE(agent.IsAlone()) << request.substr(0, 60);
  }
  EXPECT_FALSE(std::filesystem::exists(agent.At("@/run")));
  AskAndReset(agent, send + "one|3|two", connected);
  EXPECT_EQ("one", client.Receive());
  EXPECT_TRUE(client.EndsSilently()) << "nothing more is sent for who has gone";

  const Socket half = agent.Send(probe + "1000|2|x|9");
  shutdown(half.Descriptor(), SHUT_WR);
  EXPECT_EQ("301\nTimeout\n0", ReadReply(half));
}

}  // namespace
