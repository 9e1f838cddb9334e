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

// What a process can write to: its heap, its stacks, its variables.
struct TMemory {
  unsigned long address;
  std::string bytes;
};

// All of it, or the program's own variables: those without a value lie right behind the others.
inline std::vector<TMemory> MemoryOf(pid_t pid, bool all) {
  const std::string process = "/proc/" + std::to_string(pid), program = fs::read_symlink(process + "/exe");
  std::ifstream maps(process + "/maps"), memory(process + "/mem");
  std::vector<TMemory> parts;
  unsigned long begin = 0, end = 0, behindProgram = 0;
  for (std::string line; std::getline(maps, line);) {
    char rights[5] = "";
    if (sscanf(line.c_str(), "%lx-%lx %4s", &begin, &end, rights) != 3) continue;
    const bool own = line.find(program) != std::string::npos || begin == behindProgram;
    if (own) behindProgram = end;
    if (rights[1] != 'w' || !(own || all)) continue;
    parts.push_back({begin, std::string(end - begin, '\0')});
    memory.clear();
    memory.seekg(static_cast<std::streamoff>(begin));
    memory.read(&parts.back().bytes[0], static_cast<std::streamsize>(end - begin));
  }
  return parts;
}

inline std::vector<Socket> Crowd(const Agent& agent, size_t count) {
  std::vector<Socket> crowd;
  while (crowd.size() < count) crowd.push_back(Connect(agent.port));
  return crowd;
}
