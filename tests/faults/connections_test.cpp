// Connections that mean no good: crowds, floods and strangers.  Others are served meanwhile, in bounded memory.
#include <netinet/in.h>
#include <sys/socket.h>

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
  EXPECT_TRUE(agent.Tells("FailedConnections=3000"));
  EXPECT_TRUE(WaitFor([&] { return Descriptors(agent.pid) <= before; }));
}

// Cure: only a share of the descriptors is for connections that are being received; the longest silent make room.
TEST(Connections, ACrowdLeavesSessionsTheirDescriptors) {
  Agent agent;
  agent.StartsBy("ulimit -n 64; exec %");
  agent.Start("timeout=60000\n");
  std::string folder = agent.At("@/deep");
  for (int depth = 0; depth < 40; ++depth, folder += "/d") {
    fs::create_directories(folder);
    std::ofstream(folder + "/file") << std::string(1000, 'x');
  }
  std::vector<Socket> idle = Crowd(agent, 100);
  for (const Stopwatch watch; watch.Seconds() < 2; idle.push_back(Connect(agent.port)))
    EXPECT_EQ("200\n 40000", agent.Ask("TEST-FolderSize|@/deep|1"));
  ExpectServed(agent);
  EXPECT_EQ("", agent.Read("log2.txt")) << "accepting met no shortage";
}

// Cure: where no room can be made the listener rests, and the log hears of it once a second.
TEST(Connections, SessionsThatHoldAllDescriptorsAreWaitedFor) {
  Agent agent;
  agent.StartsBy("ulimit -n 64; exec %");
  agent.Start("timeout=60000\n");
  std::vector<Socket> sessions;
  for (; sessions.size() < 100; Sleep(0.002)) sessions.push_back(agent.Send("TEST-ExternalPrg|sleep 3|||0"));
  const auto complaints = [&] { return agent.Count("Cannot accept connections now, error 24\n"); };
  EXPECT_TRUE(WaitFor([&] { return complaints() > 0; }, 3)) << "the shortage was met";
  const double before = CpuSeconds(agent.pid);
  Sleep(1);
  EXPECT_LT(CpuSeconds(agent.pid) - before, Sanitized() ? 0.2 : 0.04);
  EXPECT_LE(complaints(), 3u);
  ExpectServed(agent);
}

// Connects without end and says nothing; the last few thousand connections stay open.
void Flood(int port, const std::atomic<bool>& over) {
  const sockaddr_in to{AF_INET, htons(static_cast<uint16_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
  std::vector<Socket> held(4000);
  const Stopwatch watch;
  for (size_t n = 0; !over; ++n) {
    while (static_cast<double>(n) > watch.Seconds() * 5000) Sleep(0.001);
    const sockaddr_in from{AF_INET, 0, {htonl(INADDR_LOOPBACK + 1 + static_cast<in_addr_t>(n % 50))}, {}};
    Socket& next = held[n % held.size()] = Socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    (void)bind(next.Descriptor(), reinterpret_cast<const sockaddr*>(&from), sizeof from);
    (void)connect(next.Descriptor(), reinterpret_cast<const sockaddr*>(&to), sizeof to);
  }
}

// Cure: a new connection makes its own room, and accepting rests only where none can be made.
TEST(Connections, AFloodOfNewOnesLeavesRoomForOthers) {
  if (Sanitized()) GTEST_SKIP() << "a sanitizer accepts fewer connections than the flood brings";
  Agent agent;
  agent.StartsBy("ulimit -n 1024; exec %");
  agent.Start("timeout=60000\n");
  std::atomic<bool> over{false};
  auto flood = std::async(std::launch::async, [&] { Flood(agent.port, over); });
  Sleep(1);  // it has filled what there is
  std::vector<double> times;
  for (const Stopwatch watch; watch.Seconds() < 4; times.push_back(watch.Seconds())) EXPECT_TRUE(agent.Serves());
  over = true;
  flood.get();
  for (size_t i = times.size() - 1; i > 0; --i) times[i] -= times[i - 1];
  std::sort(times.begin(), times.end());
  EXPECT_GT(times.size(), 50u);
  EXPECT_LT(times[times.size() * 99 / 100], kPrompt / 10);
}

// Cure: one event's lack of memory ends that connection; the main loop goes on.
TEST(Connections, PacketsThatMemoryDoesNotSufficeForCostThemselves) {
  if (Sanitized()) GTEST_SKIP() << "a sanitizer needs more address space than there may be";
  Agent agent;
  agent.StartsBy("ulimit -v 30000; exec %");
  agent.Start("timeout=60000\n");
  Packet packet = agent.Sealed("GetInfo");
  packet.tail = std::string(15000000, 'x');
  std::vector<std::future<void>> peers;
  for (int i = 0; i < 12; ++i)
    peers.push_back(std::async(std::launch::async, [&, bytes = packet.Bytes()] {
      const Socket peer = Connect(agent.port);
      if (peer.Send(bytes)) (void)ReadReply(peer);
    }));
  peers.clear();
  ExpectServed(agent, 5);
  EXPECT_TRUE(agent.IsAlone());
}

// Cure: what a peer does not send is waited for by nobody else, and lengths are believed only as bytes come.
TEST(Connections, AFloodOfBrokenPacketsHoldsUpNobody) {
  Agent agent("timeout=1000\n");
  const std::string good = agent.Sealed("GetInfo").Bytes();
  std::atomic<bool> over{false};
  std::vector<std::future<void>> floods;
  for (unsigned seed = 1; seed <= 4; ++seed) {
    floods.push_back(std::async(std::launch::async, [&, random = std::mt19937(seed)]() mutable {
      while (!over) {
        std::string bytes = good;
        bytes[random() % bytes.size()] = static_cast<char>(random());
        if (random() % 3 == 0) bytes.resize(random() % bytes.size());
        const Socket socket = Connect(agent.port);
        socket.Send(bytes);
        if (random() % 2 == 0) socket.Receive(0.01);
      }
    }));
  }
  for (const Stopwatch watch; watch.Seconds() < 3;) ExpectServed(agent);
  over = true;
  floods.clear();
  EXPECT_TRUE(agent.IsAlone());
}

// Cure: once the head shows a stranger, his bytes are counted and dropped; he is dismissed where his packet ends.
TEST(Connections, AStrangersBytesAreDroppedAsTheyCome) {
  Agent agent("timeout=60000\n");
  Packet packet = Seal("GetInfo\r\n", "not it");
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
  EXPECT_TRUE(other.Send(packet.Bytes()));
  EXPECT_TRUE(other.EndsSilently());
  EXPECT_EQ(1u, agent.Count("<-- Invalid BV request received\n"));
  ExpectServed(agent);
}

// Cure: sums of lengths in 64 bits; a length that no packet has is never whole.
TEST(Connections, DeclaredLengthsDoNotWrap) {
  Agent agent("timeout=3000\n");
  for (const long long length : {0xFFFFFFFFLL, 0xFFFFFFFELL, 0xFFFFFFFCLL, 0x80000000LL, 0x7FFFFFFFLL}) {
    Packet packet = agent.Sealed("QUIT");
    packet.packetShift = length - static_cast<long long>(packet.Bytes().size() - 4);
    const Socket whole = Connect(agent.port), text = Connect(agent.port);
    whole.Send(packet.Bytes());
    packet.packetShift = 0;
    packet.textShift = length - static_cast<long long>(packet.text.size());
    EXPECT_TRUE(text.Send(packet.Bytes()));
    EXPECT_TRUE(text.EndsSilently());
    EXPECT_FALSE(agent.Tells("ActiveConnections=1")) << "more is awaited of a packet of " << length;
  }
  EXPECT_EQ(5u, agent.Count("<-- Invalid BV request received\n"));
  EXPECT_TRUE(agent.IsAlone());
}

}  // namespace
