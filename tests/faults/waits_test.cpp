// What the agent lets go of only after a while.  The longest wait begins before all other tests and runs beside
// them.
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include "faults.h"

namespace {

constexpr size_t kPeers = 8;
constexpr double kGivenUpAfter = 60;  // seconds without progress

// With a small window and small segments the buffers at both ends stay small: a reply of 1 MB does not fit in.
Socket ConnectNarrowly(int port) {
  const Socket out(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int segment = 500, window = 4096;
  setsockopt(out.Descriptor(), IPPROTO_TCP, TCP_MAXSEG, &segment, sizeof segment);
  setsockopt(out.Descriptor(), SOL_SOCKET, SO_RCVBUF, &window, sizeof window);
  sockaddr_in to{AF_INET, htons(static_cast<uint16_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
  return connect(out.Descriptor(), reinterpret_cast<sockaddr*>(&to), sizeof to) == 0 ? out : Socket();
}

class TLongWaits : public testing::Environment {
 public:
  void SetUp() override {
    rlimit files;
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;  // for crowds of peers
    setrlimit(RLIMIT_NOFILE, &files);

    agent = std::make_unique<Agent>("");
    descriptors = RestingDescriptors(*agent);
    while (peers.size() < kPeers) {
      peers.push_back(ConnectNarrowly(agent->port));
      peers.back().Send(agent->Sealed("TEST-ShellScript|seq 80000|||0|9999999").Bytes());
    }
    since = Stopwatch();
  }
  void TearDown() override { agent.reset(); }

  std::unique_ptr<Agent> agent;
  long descriptors = 0;
  std::vector<Socket> peers;  // they never read
  Stopwatch since;
};
TLongWaits* const longWaits = new TLongWaits;
const testing::Environment* const registered = testing::AddGlobalTestEnvironment(longWaits);

// Cure: idle threads end after a while, and every session closes what it opened.
TEST(Waits, SessionsLeaveNoThreadDescriptorOrChild) {
  Agent agent("");
  const long descriptors = RestingDescriptors(agent);
  const long threads = Sanitized() ? 5 : 4;  // the main one, three that wait; a sanitizer may have its own
  std::vector<std::future<std::string>> sessions;
  for (const std::string request :
       {"TEST-ShellScript|/bin/sh %script%|sleep 0.3||5|0", "TEST-ExternalPrg|sleep 1|||-1", "GetInfo",
        "TEST-FolderSize|@|1", "SetSettings|Comment=x", "TEST-CPU", "TEST-TCP|127.0.0.1|1|500||0"}) {
    for (int i = 0; i < 5; ++i) sessions.push_back(agent.Asking(request));
  }
  for (auto& session : sessions) EXPECT_NE("closed", session.get());
  EXPECT_TRUE(WaitFor([&] { return Descriptors(agent.pid) <= descriptors && Children(agent.pid).empty(); }));
  EXPECT_TRUE(WaitFor([&] { return StatusOf(agent.pid, "Threads:") <= threads; }))
      << StatusOf(agent.pid, "Threads:");
  EXPECT_TRUE(agent.TempFolderIsEmpty());
}

// Cure: sending has a deadline for progress.
TEST(Waits, PeersThatNeverReadHoldUpNobodyAndAreGivenUp) {
  const TLongWaits& begun = *longWaits;
  const Agent& agent = *begun.agent;
  EXPECT_TRUE(WaitFor([&] { return agent.Tells("ActiveConnections=" + std::to_string(kPeers + 1)); }));
  ExpectServed(agent, 20);
  EXPECT_LT(begun.since.Seconds(), kGivenUpAfter) << "their sessions were still under way";
  if (Sanitized()) return;  // the minute that follows is the same in every build
  EXPECT_TRUE(WaitFor([&] { return agent.Tells("ActiveConnections=1"); }, kGivenUpAfter + 30));
  EXPECT_GE(begun.since.Seconds(), kGivenUpAfter);
  EXPECT_TRUE(WaitFor([&] { return Descriptors(agent.pid) <= begun.descriptors; }));
}

}  // namespace
