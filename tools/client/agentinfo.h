// The lines of "GetInfo" and "GetSettings" taken apart.  No I/O.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "client/agent.h"

struct TSwitch {
  std::string name;
  bool on = false;
};

struct TAgentInfo {
  std::vector<std::pair<std::string, std::string>> lines;  // name and value, in the agent's order
  std::vector<TSwitch> tests, actions;
  double elapsedMs = 0;  // of the request, or of the wait

  ~TAgentInfo();  // wipes: the settings hold the password

  bool Has(const std::string& name) const;
  std::string Value(const std::string& name) const;  // empty when there is none
  long long Number(const std::string& name) const;   // 0 when there is none
};

bool DecodeInfo(const TReply& reply, TAgentInfo& info, TFailure& failure);
// Asks with "GetInfo" or "GetSettings".
bool AskInfo(const TAgent& agent, const char* wire, TAgentInfo& info, TFailure& failure);

// One way to wait for an agent: what of it is told apart.
struct TRestart {
  long long openedBefore = 0;  // connections that the old process had counted
};

// Asks until the agent answers or the time is over; with `restart`, until a process answers that is not the old
// one.  The last reason is in the failure's text.
bool WaitForAgent(const TAgent& agent, long long forMs, const TRestart* restart, TAgentInfo& info,
                  TFailure& failure);
