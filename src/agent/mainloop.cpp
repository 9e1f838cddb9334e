#include "agent/mainloop.h"

#include <errno.h>
#include <poll.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "agent/crash.h"
#include "agent/flags.h"
#include "agent/listener.h"
#include "agent/replace.h"
#include "agent/showmessage.h"
#include "agent/signals.h"
#include "agent/upgrade.h"
#include "config/settings.h"
#include "core/process.h"

namespace {

constexpr int kAgainMs = 1000;  // until what could not be done, or goes by steps, is looked at again
constexpr int kQuarterHour = 15 * 60;

}  // namespace

TMainLoop::TMainLoop(TFd listeningSocket, TPidFile& file, char** arguments, char** environment)
    : epoll(epoll_create1(EPOLL_CLOEXEC)),
      wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      pidFile(file),
      argv(arguments),
      envp(environment),
      currentPort(SettingsInForce()->port),
      startError(epoll.IsOpen() && wake.IsOpen() ? 0 : errno),
      reception(epoll.Get()),
      acceptor(epoll.Get(), reception),
      serving{epoll.Get(), acceptor, reception} {
  if (startError != 0) return;
  SetWakeFd(wake.Get());
  WhenSettingsChange(WakeMainLoop);
  acceptor.Open(std::move(listeningSocket));
}

TExitStatus TMainLoop::Run() {
  for (;;) {
    for (const TStep step :
         {&TMainLoop::CheckFlags, &TMainLoop::CheckPort, &TMainLoop::CheckListener, &TMainLoop::Wait}) {
      const TEnding ending = Spared(step);
      if (ending) return *ending;
    }
  }
}

// A lack of memory costs what it meets: one connection, or this attempt at what stays due and is tried again.
TMainLoop::TEnding TMainLoop::Spared(TStep step) {
  try {
    return (this->*step)();
  } catch (const std::exception&) {
    leftOut = true;
    return {};
  }
}

TMainLoop::TEnding TMainLoop::CheckListener() {
  if (!served) served = StartServing(serving);
  if (acceptor.FatalError() == 0) return {};
  showmessage("Accept fatal error: %s\n\n", kNoPeer, mtFailure, 1, strerror(acceptor.FatalError()));
  return kExitNotServing;
}

// Sees to what is due, and waits until something is, or somebody asks.
TMainLoop::TEnding TMainLoop::Wait() {
  ReapChildren();
  RefreshCrashRecord();
  configLoads.Begin();
  reception.ExpireSilent();
  pollfd asked = {wake.Get(), POLLIN, 0};
  if (poll(&asked, 1, WaitMs()) > 0) {
    uint64_t count;
    (void)!read(wake.Get(), &count, sizeof count);  // the words tell what it is about
  }
  leftOut = false;
  return {};
}

int TMainLoop::WaitMs() {
  // The crash record holds the local time's distance from UTC, which changes at quarters of an hour.
  int wait = static_cast<int>(kQuarterHour - time(nullptr) % kQuarterHour) * 1000;
  const auto atMost = [&wait](int ms) {
    if (ms >= 0) wait = std::min(wait, ms);
  };
  atMost(reception.MsUntilExpiry());
  atMost(acceptor.Resume());
  if (leftOut || !served || moving || configLoads.AreDue()) atMost(kAgainMs);
  return wait;
}

TMainLoop::TEnding TMainLoop::CheckFlags() {
  if (TakeCrashRestart()) {
    // Another thread may have stopped in the middle of anything: no lock, no memory, no stream.
    acceptor.CloseIfFree();
    RestartFromRecord();
  }
  if (TakeConfigReload()) configLoads.Ask();
  if (TAVFlags.terminate) {
    showmessage("Terminate request received. Terminating..\n", kNoPeer, mtInfo, 0);
    pidFile.closepidfile();
    return kExitDone;
  }
  if (TAVFlags.reload) Reload();
  if (TAVFlags.upgrade) HandOver();
  return {};
}

void TMainLoop::Reload() {
  showmessage("Reload request received. Executing..\n", kNoPeer, mtInfo, 0);
  String program(SettingsInForce()->tavpath);
  TAVFlags.reload = 0;  // from here on it may be asked for again
  // The files of requests under way have to go first: there is no knowing that a replacement will succeed, and no
  // doing anything after it has.
  if (CanStart(program.CStr())) GiveUpRequests(nullptr, nullptr);
  Replace(program.CStr());
  showmessage("Error: cannot start new instance\n", kNoPeer, mtFailure, 0);
}

void TMainLoop::HandOver() {
  showmessage("Upgrade request received. Executing..\n", kNoPeer, mtInfo, 0);
  TAVFlags.upgrade = 0;
  {
    TReadyUpgrade upgrade;
    if (upgrade.HasProgram()) {
      const char* script = upgrade.Script();
      if (CanStart(script)) GiveUpRequests(script, upgrade.Program());
      Replace(script);
    }
  }
  showmessage("Error: cannot start upgrading script\n", kNoPeer, mtFailure, 0);
}

// Returns only when it failed; the port stays closed then.
void TMainLoop::Replace(const char* path) {
  acceptor.Close();
  pidFile.closepidfile();
  fflush(stdout);
  ReplaceProcess(path, argv, envp);
}

// Moves the listener to a changed port.  Who is connected, or comes to the old port, is served meanwhile.
TMainLoop::TEnding TMainLoop::CheckPort() {
  const TSettingsPtr settings = SettingsInForce();
  moving = settings->port != currentPort;
  if (!moving) {
    portMove.Forget();
    return {};
  }
  TFd fresh;
  switch (portMove.Step(settings->host, settings->port, MonotonicMs(), fresh)) {
    case TPortMove::TState::kUnderWay:
      return {};
    case TPortMove::TState::kFailed:
      showmessage("Error: cannot open new port for listening\n", kNoPeer, mtFailure, 0);
      return FallBack(settings->port);
    case TPortMove::TState::kGivenUp:
      return FallBack(settings->port);
    case TPortMove::TState::kOpened:
      break;
  }
  acceptor.Open(std::move(fresh));
  currentPort = settings->port;
  moving = false;
  showmessage("Server port switching .. Ok\n", kNoPeer, mtSuccess, 0);
  return {};
}

// The new port cannot be opened: the settings get the old one back, at a later turn if a save is under way.  A port
// that was set in the meantime is the next to be tried.
TMainLoop::TEnding TMainLoop::FallBack(int unusable) {
  if (!TTAVSettings::ReplacePort(unusable, currentPort)) return {};
  portMove.Forget();
  if (!acceptor.IsOpen()) {  // after a replacement that failed there is none to return to
    String error;
    TFd original = Listen(error);
    if (!original.IsOpen()) {
      showmessage("Cannot open original port either. Terminating\n", kNoPeer, mtFailure, 0);
      return kExitNotServing;
    }
    acceptor.Open(std::move(original));
  }
  showmessage("Return to original port\n", kNoPeer, mtFailure, 0);
  return {};
}
