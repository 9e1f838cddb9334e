// The commands that anybody may be allowed: what opens each, what it is asked, and what is right.  The command
// table is tested with them, and so is what happens when the agent's calls fail.
#pragma once

#include <atomic>
#include <thread>

#include "agent_fixture.h"

// Answers each connection or datagram until it goes.
class Counterpart {
 public:
  explicit Counterpart(bool isTcp);
  ~Counterpart();
  std::string Port() const { return std::to_string(socket.Port()); }

 private:
  void Run() const;

  const bool tcp;
  std::atomic<bool> over{false};
  const Socket socket;
  std::thread thread;
};

struct Question {
  std::string switches;  // parted by commas; one that is on is enough; "-": there is none
  std::string request, reply;

  bool IsSwitchedBy(const std::string& name) const {
    return ("," + switches + ",").find("," + name + ",") != std::string::npos;
  }
  std::string Command() const { return request.substr(0, request.find('|')); }
};

// A table whose rows begin with the switches.
std::vector<Question> Questions(const std::string& table);

// They need what LayOut makes in an agent's folder, and the lines of the configuration that it returns.
std::vector<Question> EveryCommand(const Counterpart& tcp, const Counterpart& udp);
std::string LayOut(const Agent& agent);
