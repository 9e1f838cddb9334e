#include "agent/signals.h"

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <initializer_list>

#include "agent/crash.h"
#include "agent/flags.h"

namespace {

// A fault sooner than this after the start ends the process: it would only come again.
constexpr long long kSecondsBeforeRestart = 181;
// The main thread takes less, unless it waits for a lock that the broken thread holds.
constexpr long long kGraceUs = 1000 * 1000;

std::atomic<int> configReload{0};
std::atomic<int> crashRestart{0};
std::atomic<int> restarting{0};

void Catch(int signal, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART | SA_NOCLDSTOP;
  sigaction(signal, &action, nullptr);
}

void reloadcfg(int) {
  configReload = 1;
  WakeMainLoop();
}

bool OnMainThread() {
  return syscall(SYS_gettid) == getpid();
}

void reloadapp(int, siginfo_t* info, void*) {
  const bool sent = info->si_code <= 0;  // by somebody: nothing is broken
  if (restarting && sent) return;
  const bool early = MonotonicSeconds() - TAVFlags.startTime < kSecondsBeforeRestart;
  if (early) signal(SIGSEGV, SIG_DFL);
  CrashMessage("Segmentation fault!!\n", mtFailure);
  if (early) return;
  CrashMessage("Restarting..\n", mtFailure);
  restarting = 1;
  crashRestart = 1;
  WakeMainLoop();
  if (sent) return;

  // Returning to the broken instruction would end the process before the main thread can start it anew.
  if (!OnMainThread()) SleepUs(kGraceUs);
  if (TakeCrashRestart()) {
    RestartFromRecord();
    signal(SIGSEGV, SIG_DFL);  // neither served nor started anew, it ends, for whoever watches it to see
    return;
  }
  for (;;) pause();
}

}  // namespace

void InstallQuietHandlers() {
  for (const int quiet : {SIGPIPE, SIGXFSZ}) Catch(quiet, [](int) {});
  Catch(SIGCHLD, [](int) { WakeMainLoop(); });
}

void InstallReloadHandler() {
  Catch(SIGHUP, reloadcfg);
}

void InstallFaultHandler() {
  struct sigaction action = {};
  action.sa_sigaction = reloadapp;
  action.sa_flags = SA_SIGINFO | SA_RESTART;
  sigaction(SIGSEGV, &action, nullptr);
}

bool TakeConfigReload() {
  return configReload.exchange(0) != 0;
}
bool TakeCrashRestart() {
  return crashRestart.exchange(0) != 0;
}
