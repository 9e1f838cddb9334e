// What the fault tests measure: a running agent as the kernel sees it, and whether others are still served.
#pragma once

#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "agent_fixture.h"

namespace fs = std::filesystem;

// Seconds within which an answer still counts as prompt, on a machine that is busy with other tests.
inline const double kPrompt = Sanitized() ? 30 : 10;
inline const long kMostKib = Sanitized() ? 1L << 40 : 64 * 1024;

// A number from /proc/PID/status, such as "Threads:".
inline long StatusOf(pid_t pid, const std::string& field) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  for (std::string word; in >> word && word != field;) continue;
  long value = -1;
  in >> value;
  return value;
}

inline long Descriptors(pid_t pid) {
  return std::distance(fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd"), {});
}

// Of an agent that has begun to serve and has nothing to do: the least, as a session may just be ending.
inline long RestingDescriptors(const Agent& agent) {
  EXPECT_TRUE(agent.Serves());
  long least = Descriptors(agent.pid);
  for (int i = 0; i < 20; ++i, Sleep(0.01)) least = std::min(least, Descriptors(agent.pid));
  return least;
}

inline double CpuSeconds(pid_t pid) {
  clockid_t clock;
  timespec used{};
  if (clock_getcpuclockid(pid, &clock) == 0) clock_gettime(clock, &used);
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

// Promptly, by an agent that has never held more memory than it may.
inline void ExpectServed(const Agent& agent, int times = 1) {
  for (int i = 0; i < times; ++i) {
    const Stopwatch watch;
    EXPECT_TRUE(agent.Serves());
    EXPECT_LT(watch.Seconds(), kPrompt);
  }
  EXPECT_LT(StatusOf(agent.pid, "VmHWM:"), kMostKib);
}

inline std::vector<Socket> Crowd(const Agent& agent, size_t count) {
  std::vector<Socket> crowd;
  while (crowd.size() < count) crowd.push_back(Connect(agent.port));
  return crowd;
}
