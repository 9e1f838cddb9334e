// The status record: who the agent is and what its connections are doing.
//
// The counters may be read and changed by any thread; the rest never changes.
#pragma once

#include <atomic>

struct TAgentStatus {
  const char* Signature = "ZoBvTAStRec";  // by which the record is found in memory
  int RecordVersion = 1;
  const char* AgentName = "ZO Tavisto";
  const char* AgentPlatform = "Linux (Red Hat, Mandrake, SuSE)";
  const char* AgentVersion = "1.30";
  const char* AgentDeveloper = "Tavisto, https://tavisto.example";
  int Service = 0;
  int Active = 0;
  std::atomic<int> ActiveConnections{0};  // sessions now running
  std::atomic<int> OpenedConnections{0};  // sessions since the start
  std::atomic<int> FailedConnections{0};  // connections turned away by the address filter since the start
};

extern TAgentStatus AgentStatus;
