// Starts an agent again and again in interactive mode: the time from fork to "Listening...", and the memory it
// holds when idle.
//
//   tav_startup RUNS PROGRAM CFG_FILE

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <string>
#include <vector>

namespace {

long ResidentKiB(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmRSS:", 0) == 0) return atol(line.c_str() + 6);
  }
  return 0;
}

// Milliseconds to "Listening...", or a negative number.
double StartOnce(const char* program, const char* config, long& residentKiB) {
  int ends[2];
  if (pipe(ends) != 0) return -1;
  const auto begin = std::chrono::steady_clock::now();
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    close(ends[1]);
    execl(program, program, "-i", config, static_cast<char*>(nullptr));
    _exit(127);
  }
  close(ends[1]);
  std::string output;
  char buffer[512];
  double ms = -1;
  for (ssize_t n; ms < 0 && (n = read(ends[0], buffer, sizeof buffer)) > 0;) {
    output.append(buffer, static_cast<size_t>(n));
    if (output.find("Listening...") == std::string::npos) continue;
    ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
  }
  usleep(100 * 1000);  // until it waits
  residentKiB = ResidentKiB(child);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  close(ends[0]);
  return ms;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: %s RUNS PROGRAM CFG_FILE\n", argv[0]);
    return 64;
  }
  std::vector<double> times;
  long residentKiB = 0;
  for (int i = atoi(argv[1]); i > 0; --i) times.push_back(StartOnce(argv[2], argv[3], residentKiB));
  std::sort(times.begin(), times.end());
  if (times.empty() || times.front() < 0) {
    fprintf(stderr, "the agent did not start\n");
    return 1;
  }
  printf("start to \"Listening...\": min %.1f ms, median %.1f ms, max %.1f ms; idle: %ld KiB resident\n",
         times.front(), times[times.size() / 2], times.back(), residentKiB);
  return 0;
}
