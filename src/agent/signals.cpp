#include "agent/signals.h"

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

#include "agent/crash.h"
#include "agent/flags.h"

namespace {

// A fault sooner than this after the start ends the process: it would only come again.
constexpr long long kSecondsBeforeRestart = 181;

std::atomic<int> configReload{0};
std::atomic<int> crashRestart{0};

void reloadcfg(int) {
  configReload = 1;
  WakeMainLoop();
}

bool OnMainThread() {
  return syscall(SYS_gettid) == getpid();
}

void reloadapp(int, siginfo_t* info, void*) {
  signal(SIGSEGV, SIG_DFL);
  CrashMessage("Segmentation fault!!\n");
  if (MonotonicSeconds() - TAVFlags.startTime < kSecondsBeforeRestart) return;
  CrashMessage("Restarting..\n");
  signal(SIGSEGV, SIG_IGN);
  crashRestart = 1;
  WakeMainLoop();
  if (info->si_code <= 0) return;  // sent by somebody: nothing is broken

  // Returning to the broken instruction would end the process before the main thread can start it anew.
  if (OnMainThread()) RestartFromRecord();
  for (;;) pause();
}

}  // namespace

void InstallReloadHandler() {
  struct sigaction action = {};
  action.sa_handler = reloadcfg;
  action.sa_flags = SA_RESTART;
  sigaction(SIGHUP, &action, nullptr);
}

void InstallFaultHandlers() {
  struct sigaction action = {};
  action.sa_sigaction = reloadapp;
  action.sa_flags = SA_SIGINFO | SA_RESTART;
  sigaction(SIGSEGV, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);  // a file at its size limit fails the write, as a full disk does
}

bool TakeConfigReload() {
  return configReload.exchange(0) != 0;
}
bool TakeCrashRestart() {
  return crashRestart.exchange(0) != 0;
}
