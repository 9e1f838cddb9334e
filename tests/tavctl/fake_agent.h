// Agents that are not as they should be: older, stubborn or slow ones, written on the tests' own side of the wire.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <functional>
#include <thread>

#include "tests/e2e/peer.h"

class FakeAgent {
 public:
  // Answers with what `answer` makes of a request text; none at all when that is empty.
  using Answer = std::function<std::string(const std::string& request)>;

  explicit FakeAgent(Answer make) : answer(std::move(make)), thread([this] { Serve(); }) {}
  ~FakeAgent() {
    shutdown(listener.Descriptor(), SHUT_RDWR);
    thread.join();
  }
  int Port() const { return listener.Port(); }

 private:
  // The texts and programs that the tests send fit into the time that is given here.
  void Serve() {
    for (Socket peer = Accept(listener); peer.Descriptor() >= 0; peer = Accept(listener)) {
      const std::string packet = peer.Receive();
      constexpr size_t kKey = 8 + 16 + 2, kText = kKey + 32 + 4;
      if (packet.size() < kText) continue;
      const std::string session = Cipher(Direction::kOpen, packet.substr(kKey, 32), "secret");
      const std::string request = Cipher(Direction::kOpen, packet.substr(kText), session);
      Reply(peer, session, answer(request));
      if (request.rfind("UpgradeCode", 0) != 0) continue;
      while (!peer.Receive(0.6).empty()) continue;
      Reply(peer, session, answer("digest"));
    }
  }
  static void Reply(const Socket& peer, const std::string& session, const std::string& text) {
    const std::string sealed = Cipher(Direction::kSeal, text + "\n\r", session);
    const auto length = static_cast<unsigned>(sealed.size());
    if (!text.empty()) (void)peer.Send(std::string(reinterpret_cast<const char*>(&length), 4) + sealed);
  }

  Socket listener = ServeTcp();
  Answer answer;
  std::thread thread;
};
