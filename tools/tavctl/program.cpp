#include "tavctl/program.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "client/text.h"
#include "core/clock.h"
#include "core/closers.h"
#include "core/writeall.h"
#include "protocol/programsize.h"
#include "tavctl/elf.h"

namespace {

constexpr const char* kMark = "TAV (Tavisto for Belvane)";  // of the agent's banner
constexpr long long kRunMs = 2000;
constexpr const char* kForceHint = "if the file is right all the same, give --force";

// What the child does: nothing of ours but the output, no arguments, a clean environment.
[[noreturn]] void RunChild(int program, int output) {
  char name[] = "tav";
  char* const argv[] = {name, nullptr};
  char* const environment[] = {nullptr};
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  setpgid(0, 0);
  alarm(kRunMs / 1000 + 1);
  if (null >= 0 && dup2(null, 0) == 0 && dup2(output, 1) == 1 && dup2(null, 2) == 2)
    fexecve(program, argv, environment);
  _exit(127);
}

// Its first output, until it ends, says the mark, or the time is over.
std::string Heard(int fd) {
  std::string text;
  char block[1024];
  for (const long long end = MonotonicMs() + kRunMs; MonotonicMs() < end && text.size() < 65536;) {
    pollfd entry{fd, POLLIN, 0};
    const int ready = poll(&entry, 1, static_cast<int>(std::max(0LL, end - MonotonicMs())));
    if (ready < 0 && errno == EINTR) continue;
    const ssize_t n = ready > 0 ? read(fd, block, sizeof block) : 0;
    if (n <= 0) break;
    text.append(block, static_cast<size_t>(n));
    if (text.find(kMark) != std::string::npos) break;
  }
  return text;
}

// Runs the very bytes that would be sent.
bool SaysItsMark(const std::string& content) {
  TFd program(memfd_create("tav", MFD_CLOEXEC));
  int ends[2];
  if (!program.IsOpen() || fchmod(program.Get(), 0700) != 0 || pipe2(ends, O_CLOEXEC) != 0) return false;
  const TFd reading(ends[0]);
  TFd writing(ends[1]);
  if (!WriteAll(program.Get(), content.data(), static_cast<long long>(content.size()))) return false;
  // A descriptor open for writing cannot be run.
  const TFd runnable(open(("/proc/self/fd/" + std::to_string(program.Get())).c_str(), O_RDONLY | O_CLOEXEC));
  program.Reset();
  const pid_t child = runnable.IsOpen() ? fork() : -1;
  if (child == 0) RunChild(runnable.Get(), writing.Get());
  writing.Reset();
  if (child < 0) return false;
  const std::string text = Heard(reading.Get());
  (void)kill(child, SIGKILL);  // may have ended by itself
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) continue;
  return text.find(kMark) != std::string::npos;
}

}  // namespace

bool CheckProgramSize(const std::string& content, const std::string& name, TFailure& failure) {
  const auto size = static_cast<long long>(content.size());
  if (size >= kSmallestProgram && size <= kLargestProgram) return true;
  return Fail(failure, TKind::kInput, "'" + name + "' has " + NumberText(size) + " bytes",
              "agents take 101 to 10,485,759 bytes; a stripped program is smaller");
}

bool CheckProgram(const std::string& content, const std::string& name, TFailure& failure) {
  if (!CheckProgramSize(content, name, failure)) return false;
  const std::string fault = ElfFault(content);
  if (!fault.empty()) return Fail(failure, TKind::kInput, "'" + name + "' " + fault, kForceHint);
  const bool runs = ElfMachine(content) == OwnMachine();
  if (runs ? SaysItsMark(content) : content.find(kMark) != std::string::npos) return true;
  return Fail(failure, TKind::kInput,
              "'" + name + "' is no agent: " + (runs ? "started, it does not say" : "it does not hold") +
                  " the agent's name",
              kForceHint);
}

bool CheckMachine(const std::string& content, const std::string& runningOs, TFailure& failure) {
  const unsigned told = MachineIn(runningOs);
  const unsigned wanted = told != 0 ? told : OwnMachine();
  if (ElfMachine(content) == wanted) return true;
  return Fail(
      failure, TKind::kInput,
      "the program is for " + MachineName(ElfMachine(content)) + ", " +
          (told != 0 ? "but the agent runs on " : "and the agent does not tell that it runs on another than ") +
          MachineName(wanted),
      kForceHint);
}
