#include "agent/mainloop.h"

#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
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
#include "config/agent_status.h"
#include "config/ipfilter.h"
#include "config/settings.h"
#include "core/process.h"
#include "core/trouble.h"

namespace {

constexpr int kTickMs = 1000;
constexpr int kAcceptPauseMs = 100;  // while descriptors or memory are short and no room can be made
constexpr int kAcceptsPerTurn = 64;  // then those already here have their turn, before they have to make room
constexpr int kEventsPerTurn = 256;

// The listener itself is broken; everything else that accept reports concerns one connection that is gone.
bool IsFatal(int error) {
  return error == EBADF || error == EINVAL || error == ENOTSOCK || error == EOPNOTSUPP || error == EFAULT;
}

}  // namespace

TMainLoop::TMainLoop(TFd listeningSocket, TPidFile& file, char** arguments, char** environment)
    : epoll(epoll_create1(EPOLL_CLOEXEC)),
      wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      listener(std::move(listeningSocket)),
      pidFile(file),
      argv(arguments),
      envp(environment),
      currentPort(SettingsInForce()->port),
      reception(epoll.Get()) {
  epoll_event event = {};
  event.events = EPOLLIN;
  event.data.ptr = &wake;
  if (epoll_ctl(epoll.Get(), EPOLL_CTL_ADD, wake.Get(), &event) != 0) startError = errno;
  SetWakeFd(wake.Get());
  WatchListener(true);
}

// A listener that is not watched, or can't be, is watched again after the pause.
void TMainLoop::WatchListener(bool watched) {
  acceptAgainMs = 0;
  if (!listener.IsOpen()) return;
  epoll_event event = {};
  if (watched) event.events = EPOLLIN;
  event.data.ptr = &listener;
  const bool done = epoll_ctl(epoll.Get(), EPOLL_CTL_MOD, listener.Get(), &event) == 0 ||
                    (errno == ENOENT && epoll_ctl(epoll.Get(), EPOLL_CTL_ADD, listener.Get(), &event) == 0);
  if (!watched || !done) acceptAgainMs = MonotonicMs() + kAcceptPauseMs;
}

// Closing alone would not do: a child that is just being started still holds the socket, which would stay watched
// and readable.
void TMainLoop::CloseListener() {
  epoll_ctl(epoll.Get(), EPOLL_CTL_DEL, listener.Get(), nullptr);
  listener.Reset();
}

TExitStatus TMainLoop::Run() {
  for (;;) {
    for (const TStep step : {&TMainLoop::CheckFlags, &TMainLoop::CheckPort, &TMainLoop::ServeOnce}) {
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
    return {};
  }
}

// Waits and works off what has come.
TMainLoop::TEnding TMainLoop::ServeOnce() {
  OncePerSecond();
  configLoads.Begin();
  epoll_event events[kEventsPerTurn];
  const int n = epoll_wait(epoll.Get(), events, kEventsPerTurn, WaitMs());
  bool connections = false;
  for (int i = 0; i < n; ++i) {
    if (events[i].data.ptr == &wake) {
      uint64_t count;
      (void)!read(wake.Get(), &count, sizeof count);  // the words tell what it is about
    } else if (events[i].data.ptr == &listener) {
      connections = listener.IsOpen();
    } else {
      reception.Readable(*static_cast<TReception::TPending*>(events[i].data.ptr));
    }
  }
  reception.ExpireSilent();
  reception.Sweep();
  return connections ? AcceptAll() : TEnding();
}

int TMainLoop::WaitMs() {
  const long long now = MonotonicMs();
  long long wait = reception.MsUntilExpiry(static_cast<int>(std::max(0LL, nextTickMs - now)));
  if (acceptAgainMs > 0) wait = std::min(wait, std::max(0LL, acceptAgainMs - now));
  return static_cast<int>(wait);
}

void TMainLoop::OncePerSecond() {
  const long long now = MonotonicMs();
  if (acceptAgainMs > 0 && now >= acceptAgainMs) WatchListener(true);
  if (now < nextTickMs) return;
  nextTickMs = now + kTickMs;
  ReapChildren();
  (void)pidFile.KeepLocked();  // lost to another instance, it stays lost
  RefreshCrashRecord();
}

TMainLoop::TEnding TMainLoop::CheckFlags() {
  if (TakeCrashRestart()) {
    // Another thread may have stopped in the middle of anything: no lock, no memory, no stream.
    CloseListener();
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
  CloseListener();
  pidFile.closepidfile();
  fflush(stdout);
  ReplaceProcess(path, argv, envp);
}

// Moves the listener to a changed port.  Who is connected, or comes to the old port, is served meanwhile.
TMainLoop::TEnding TMainLoop::CheckPort() {
  const TSettingsPtr settings = SettingsInForce();
  if (settings->port == currentPort) {
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
  CloseListener();
  listener = std::move(fresh);
  WatchListener(true);
  currentPort = settings->port;
  showmessage("Server port switching .. Ok\n", kNoPeer, mtSuccess, 0);
  return {};
}

// The new port cannot be opened: the settings get the old one back, at a later turn if a save is under way.  A port
// that was set in the meantime is the next to be tried.
TMainLoop::TEnding TMainLoop::FallBack(int unusable) {
  if (!TTAVSettings::ReplacePort(unusable, currentPort)) return {};
  portMove.Forget();
  if (!listener.IsOpen()) {  // after a replacement that failed there is none to return to
    String error;
    listener = Listen(error);
    if (!listener.IsOpen()) {
      showmessage("Cannot open original port either. Terminating\n", kNoPeer, mtFailure, 0);
      return kExitNotServing;
    }
    WatchListener(true);
  }
  showmessage("Return to original port\n", kNoPeer, mtFailure, 0);
  return {};
}

TMainLoop::TEnding TMainLoop::AcceptAll() {
  const int most = std::clamp(reception.Most() / 2, 1, kAcceptsPerTurn);
  int accepted = 0;
  bool madeRoom = false;
  for (int i = 0; i < most; ++i) {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    TFd socket(
        accept4(listener.Get(), reinterpret_cast<sockaddr*>(&address), &length, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (socket.IsOpen()) {
      ++accepted;
      Admit(std::move(socket), address.sin_addr);
      continue;
    }
    const int error = errno;
    if (error == EAGAIN || error == EWOULDBLOCK) return {};
    if (IsFatal(error)) {
      showmessage("Accept fatal error: %s\n\n", kNoPeer, mtFailure, 1, strerror(error));
      return kExitNotServing;
    }
    if (!OwnTrouble(error)) continue;
    if (accepted > 0) return {};  // those just taken have their turn before they have to make room
    if (!Relieve(error, !madeRoom)) return {};
    madeRoom = true;
  }
  return {};
}

// Descriptors or memory are short.  False when there is no room to be made: the listener has a rest then, or the
// loop would spin on a connection that it cannot take.
bool TMainLoop::Relieve(int error, bool mayMakeRoom) {
  const bool room = mayMakeRoom && reception.MakeRoom();
  Complain(error);
  if (!room) WatchListener(false);
  return room;
}

void TMainLoop::Admit(TFd socket, in_addr peer) {
  const TSettingsPtr settings = SettingsInForce();
  if (settings->filteractive && !PassesFilter(peer, settings->activefilter)) {
    AgentStatus.FailedConnections.fetch_add(1);
    showmessage("TCP connection rejected\n", peer, mtFailure, 0);
    shutdown(socket.Get(), SHUT_RDWR);
    return;
  }
  showmessage("TCP connection accepted\n", peer, mtSuccess, 0);
  const int on = 1;  // a peer that has vanished without a word must not hold an upgrade for ever
  setsockopt(socket.Get(), SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
  reception.Admit(std::move(socket), peer);
}

void TMainLoop::Complain(int error) {
  const long long now = MonotonicSeconds();
  if (now == lastComplaintS) return;
  lastComplaintS = now;
  showmessage("Cannot accept connections now, error %d\n", kNoPeer, mtFailure, 1, error);
}
