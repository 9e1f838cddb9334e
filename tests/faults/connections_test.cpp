// Connections that mean no good: crowds, floods and strangers.  Others are served meanwhile, in bounded memory.
#include <random>

#include "faults.h"

namespace {

// Cure: one thread receives for all connections, with poll's kin; only a whole request gets a thread.
TEST(Connections, CrowdsOfIdleOnesCostLittle) {
  Agent agent("timeout=60000\n");
  const long before = RestingDescriptors(agent), threads = StatusOf(agent.pid, "Threads:");
  std::vector<Socket> idle = Crowd(agent, 1500);
  ASSERT_TRUE(WaitFor([&] { return Descriptors(agent.pid) >= before + 1500; }));
  ExpectServed(agent, 20);
  EXPECT_LE(StatusOf(agent.pid, "Threads:"), threads + 20);
  idle.clear();
  EXPECT_TRUE(WaitFor([&] { return Descriptors(agent.pid) <= before; }));
}

// Cure: a rejected connection is closed, not only shut down.
TEST(Connections, RejectedOnesAreCountedAndLeaveNothing) {
  Agent agent("filteractive=1\n");
  const long before = RestingDescriptors(agent);
  for (int i = 0; i < 3000; ++i) ASSERT_TRUE(Connect(agent.port, "127.0.0.2").EndsSilently()) << i;
  EXPECT_TRUE(Tells(agent, "FailedConnections=3000"));
  EXPECT_TRUE(WaitFor([&] { return Descriptors(agent.pid) <= before; }));
}

// Cure: without descriptors the longest silent make room, the listener rests, the log hears of it once a second.
TEST(Connections, AShortageOfDescriptorsIsGotOver) {
  Agent agent;
  agent.Write("few", "#!/bin/sh\nulimit -n 64\nexec " + AgentBinary() + " \"$@\"\n");
  agent.program = agent.At("@/few");
  agent.Start("timeout=60000\n");
  std::vector<Socket> idle = Crowd(agent, 100);
  const Stopwatch watch;
  const double before = CpuSeconds(agent.pid);
  for (; watch.Seconds() < 3; Sleep(0.05)) {
    ExpectServed(agent);
    idle.push_back(Connect(agent.port));
  }
  EXPECT_LT(CpuSeconds(agent.pid) - before, watch.Seconds() / 2);
  const std::string log = agent.Read("log2.txt");
  EXPECT_LE(std::count(log.begin(), log.end(), '\n'), watch.Seconds() + 2) << log;
  EXPECT_NE("", log) << "the shortage was met";

  // Sessions that run cannot make room.
  idle.clear();
  ASSERT_TRUE(WaitFor([&] { return IsAlone(agent); }));
  std::vector<Socket> busy = Crowd(agent, 70);
  for (const Socket& session : busy)
    session.Send(Seal("TEST-ExternalPrg\r\nsleep 5\r\n\r\n\r\n0\r\n", agent.password, "session").Bytes());
  Sleep(1);
  const double full = CpuSeconds(agent.pid);
  Sleep(2);
  EXPECT_LT(CpuSeconds(agent.pid) - full, 0.5) << "the listener rests";
  busy.clear();
  EXPECT_TRUE(WaitFor([&] { return IsAlone(agent); }));
}

// Cure: what a peer does not send is waited for by nobody else, and lengths are believed only as bytes come.
TEST(Connections, AFloodOfBrokenPacketsHoldsUpNobody) {
  Agent agent("timeout=1000\n");
  const std::vector<Socket> halves = Crowd(agent, 50);  // they stay open
  for (size_t i = 0; i < halves.size(); ++i)
    halves[i].Send(Seal("GetInfo\r\n", agent.password, "session").Bytes().substr(0, i));
  std::atomic<bool> over{false};
  std::vector<std::future<void>> floods;
  for (unsigned seed = 1; seed <= 4; ++seed) {
    floods.push_back(std::async(std::launch::async, [&, random = std::mt19937(seed)]() mutable {
      while (!over) {
        std::string bytes = Seal("GetInfo\r\n", agent.password, "session").Bytes();
        if (random() % 3 != 0) bytes[random() % bytes.size()] = static_cast<char>(random());
        if (random() % 3 == 0) bytes.resize(random() % bytes.size());
        if (random() % 4 == 0)
          std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
        const Socket socket = Connect(agent.port);
        socket.Send(bytes);
        if (random() % 2 == 0) socket.Receive(0.01);
      }
    }));
  }
  for (const Stopwatch watch; watch.Seconds() < 3;) ExpectServed(agent);
  over = true;
  floods.clear();
  EXPECT_TRUE(WaitFor([&] { return IsAlone(agent); }));
}

// Cure: once the head shows a stranger, his bytes are counted and dropped; he is dismissed where his packet ends.
TEST(Connections, AStrangersBytesAreDroppedAsTheyCome) {
  Agent agent("timeout=60000\n");
  Packet packet = Seal("GetInfo\r\n", "not it", "s");
  packet.packetShift = 0xFFFFFFFFLL - static_cast<long long>(packet.Bytes().size() - 4);
  const Socket endless = Connect(agent.port), other = Connect(agent.port);
  EXPECT_TRUE(endless.Send(packet.Bytes()));
  for (int i = 0; i < 300; ++i) {
    ASSERT_TRUE(endless.Send(std::string(1000000, 'x'))) << i;
    if (i % 30 == 0) ExpectServed(agent);
  }
  EXPECT_EQ(0u, agent.Count("<-- Invalid BV request")) << "his packet is not whole yet";
  packet.packetShift = 0;
  packet.tail = std::string(15000000, 'x');
  EXPECT_TRUE(other.Send(packet.Bytes()) && other.EndsSilently());
  EXPECT_EQ(1u, agent.Count("<-- Invalid BV request received\n"));
  ExpectServed(agent);
}

// Cure: sums of lengths in 64 bits; a length that no packet has is never whole; what unfinished packets hold is
// bounded for all of them together.
TEST(Connections, DeclaredLengthsNeitherWrapNorFillTheMemory) {
  Agent agent("timeout=1000\n");
  for (const long long length : {0xFFFFFFFFLL, 0xFFFFFFFELL, 0xFFFFFFFCLL, 0x80000000LL, 0x7FFFFFFFLL}) {
    Packet packet = Seal("QUIT\r\n", agent.password, "session");
    packet.packetShift = length - static_cast<long long>(packet.Bytes().size() - 4);
    const Socket whole = Connect(agent.port), text = Connect(agent.port);
    whole.Send(packet.Bytes());
    packet.packetShift = 0;
    packet.textShift = length - static_cast<long long>(packet.text.size());
    EXPECT_TRUE(text.Send(packet.Bytes()) && text.EndsSilently());
    EXPECT_FALSE(IsAlone(agent)) << "more is awaited of a packet of " << length;
  }
  EXPECT_EQ(5u, agent.Count("<-- Invalid BV request received\n"));
  EXPECT_TRUE(WaitFor([&] { return IsAlone(agent); }));

  Agent patient("timeout=60000\n");
  Packet packet = Seal("GetInfo\r\n", agent.password, "session");
  packet.tail = std::string(12000000, 'x');
  const std::string bytes = packet.Bytes(), most = bytes.substr(0, bytes.size() - 1);
  const std::vector<Socket> holders = Crowd(patient, 10);
  for (const Socket& holder : holders) EXPECT_TRUE(holder.Send(most) && WaitUntilTaken(holder));
  ExpectServed(patient);
  for (size_t i = 0; i < 8; ++i) EXPECT_TRUE(holders[i].EndsSilently()) << i << ": the longest silent go";
  EXPECT_TRUE(holders[9].Send(bytes.substr(most.size())));
  EXPECT_EQ("200", FirstLine(ReadReply(holders[9], "session")));
  for (int i = 0; i < 4; ++i) {
    const Socket whole = Connect(patient.port);
    EXPECT_TRUE(whole.Send(bytes));
    EXPECT_EQ("200", FirstLine(ReadReply(whole, "session"))) << i << ": what it held is given back";
  }
}

}  // namespace
