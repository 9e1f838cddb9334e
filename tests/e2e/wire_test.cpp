// The wire: which packets are whole, which are refused, how they may arrive, and when a silent peer is let go.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "agent_fixture.h"

namespace {

TEST(Wire, OneWrongFieldIsEnoughToRefuseAPacket) {
  const struct {
    const char* what;
    const char* reply;  // its first line; "refused" and "waits" both end in a closed connection
    void (*change)(Packet&);
  } rows[] = {
      {"nothing", "200", [](Packet&) {}},
      {"second signature byte", "refused", [](Packet& p) { p.signature[1] = 19; }},
      {"another password", "refused", [](Packet& p) { p = Seal("GetInfo\r\n", "Secret"); }},
      {"packet length one less", "refused", [](Packet& p) { p.packetShift = -1; }},
      {"packet length one more", "waits", [](Packet& p) { p.packetShift = 1; }},
      {"packet length of 4 GiB", "waits", [](Packet& p) { p.packetShift = 0xFFFFFF00LL; }},
      {"three fields empty", "refused", [](Packet& p) { p.proof = p.key = p.text = ""; }},
      {"counted bytes behind the text", "200", [](Packet& p) { p.tail = "xyz"; }},
      {"uncounted bytes behind the text", "refused", [](Packet& p) { p.tail = "xyz", p.packetShift = -3; }},
      {"text length one less", "200", [](Packet& p) { p.textShift = -1; }},
      {"empty text", "502", [](Packet& p) { p.text.clear(); }},
      {"empty session key", "200", [](Packet& p) { p = Seal("GetInfo\r\n", "secret", ""); }},
      {"long key", "200", [](Packet& p) { p = Seal("GetInfo\r\n", "secret", std::string(60000, 'k')); }},
      {"long text", "200", [](Packet& p) { p = Seal("GetInfo\r\n" + std::string(300000, 'x'), "secret"); }},
  };
  Agent agent(Sanitized() ? "timeout=9000\n" : "timeout=1000\n");
  std::vector<std::pair<Socket, Packet>> sent;  // all at once: some wait for their time-out
  size_t refused = 0;
  for (const auto& row : rows) {
    sent.emplace_back(Connect(agent.port), agent.Sealed("GetInfo"));
    row.change(sent.back().second);
    sent.back().first.Send(sent.back().second.Bytes());
    refused += row.reply == std::string("refused");
  }
  for (size_t i = 0; i < sent.size(); ++i) {
    const std::string want = isdigit(rows[i].reply[0]) ? rows[i].reply : "closed";
    EXPECT_EQ(want, FirstLine(ReadReply(sent[i].first, sent[i].second.session))) << rows[i].what;
  }
  EXPECT_TRUE(WaitFor([&] { return agent.Count("<-- Invalid BV request received\n") == refused; }));
}

TEST(Wire, ACommandLineNeedsACarriageReturnAndIsTrimmed) {
  Agent agent("");
  // "|" stands for a carriage return, "^" for a line feed.
  for (Exchange& row : Rows(R"(GetInfo|^ => 200 ; GetInfo| => 200 ; GetInfo^x| => 200 ;  GetInfo |^ => 200
    GetInfo => 502 ; GetInfo^ => 502 ; getinfo|^ => 500 ; GetInfo x|^ => 500 ; |^ => 500 ; TEST-TextLog|^1 => 500)")) {
    for (char& c : row.request) c = c == '|' ? '\r' : c == '^' ? '\n' : c;
    EXPECT_EQ(row.reply, FirstLine(agent.AskRaw("\t" + row.request))) << row.request;
  }
}

TEST(Wire, APacketMayComeInPiecesEachInTimeAndMoreBytesAreIgnored) {
  Agent agent("timeout=2000\n");
  const Socket bytewise = Connect(agent.port);
  const int narrow = 4096;  // most of the reply is still under way when the agent closes
  setsockopt(bytewise.Descriptor(), SOL_SOCKET, SO_RCVBUF, &narrow, sizeof narrow);
  for (const char byte : agent.Sealed("TEST-ShellScript|sh %script% x|sleep 1; seq 10000||0|9999999").Bytes())
    ASSERT_TRUE(bytewise.Send(std::string(1, byte)));
  ASSERT_TRUE(WaitUntilTaken(bytewise));
  bytewise.Send(std::string(5000, 'x'));  // unread, they must not reset the reply away
  Sleep(1.5);
  EXPECT_EQ(10u + 38894 + 10000 * 6, ReadReply(bytewise).size());

  const Socket slow = Connect(agent.port);
  const std::string bytes = agent.Sealed("TEST-ExternalPrg|sleep 1|||0").Bytes();
  for (size_t at = 0; at < bytes.size(); at += bytes.size() / 5 + 1) {
    Sleep(at == 0 ? 0 : 0.6);  // together more than the time-out
    ASSERT_TRUE(slow.Send(bytes.substr(at, bytes.size() / 5 + 1)));
  }
  EXPECT_EQ("200\n0", ReadReply(slow));
}

TEST(Wire, ASilentPeerIsLetGoAndHoldsUpNobody) {
  const int timeout = Sanitized() ? 4 : 1;  // seconds
  Agent agent("timeout=" + std::to_string(timeout) + "000\n"), patient("timeout=-1\n");
  const Socket kept = Connect(patient.port);
  const Stopwatch watch;
  const Socket talks = Connect(agent.port);
  std::vector<Socket> silent;
  for (int i = 0; i < 100; ++i) silent.push_back(Connect(agent.port));
  EXPECT_TRUE(agent.Tells("ActiveConnections=102"));
  const std::string packet = agent.Sealed("GetInfo|" + std::string(500, 'x')).Bytes();
  size_t said = 0;
  for (; watch.Seconds() < timeout + 2.5; Sleep(0.05)) {
    EXPECT_TRUE(agent.Serves());
    EXPECT_TRUE(talks.Send(packet.substr(said++, 1)));
    const bool ended = silent[0].EndsSilently(0);
    EXPECT_TRUE(!ended || watch.Seconds() > timeout) << "too early";
  }
  for (const Socket& socket : silent) EXPECT_TRUE(socket.EndsSilently(0.5)) << "behind who talks";
  talks.Send(packet.substr(said));
  EXPECT_EQ("200", FirstLine(ReadReply(talks)));
  EXPECT_LT(watch.Seconds(), Sanitized() ? 20 : 8);
  EXPECT_TRUE(agent.IsAlone());
  kept.Send(patient.Sealed("GetInfo").Bytes());
  EXPECT_EQ("200", FirstLine(ReadReply(kept))) << "a negative time-out lets nobody go";
}

}  // namespace
