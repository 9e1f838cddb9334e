// Program entry: checks, daemon, main loop.  core/exitstatus.h says how it ends.

#include <errno.h>
#include <malloc.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <exception>

#include "agent/cmdline.h"
#include "agent/crash.h"
#include "agent/daemon.h"
#include "agent/flags.h"
#include "agent/listener.h"
#include "agent/mainloop.h"
#include "agent/pidfile.h"
#include "agent/selftest.h"
#include "agent/showmessage.h"
#include "agent/signals.h"
#include "config/settings.h"
#include "core/childwait.h"
#include "core/exitstatus.h"
#include "core/filesearch.h"

namespace {

// Many threads that each keep a heap of their own would make the agent's memory grow with the number of sessions
// that ever ran at once; large blocks go back to the system when they are freed.
constexpr int kHeaps = 2;
constexpr int kLargeBlock = 128 * 1024;

constexpr int kServeAttempts = 3;

void PrepareProcess() {
  OpenMissingStreams();
  InstallQuietHandlers();
  mallopt(M_ARENA_MAX, kHeaps);
  mallopt(M_MMAP_THRESHOLD, kLargeBlock);
  mallopt(M_TRIM_THRESHOLD, kLargeBlock);
  setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // a service manager reads the lines as they come
  tzset();
  rlimit files;
  if (getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur < files.rlim_max) {
    files.rlim_cur = files.rlim_max;
    (void)setrlimit(RLIMIT_NOFILE, &files);  // the soft limit does as well
  }
}

bool LoadSettings(int argc, char** argv) {
  TTAVSettings given;
  ParseCommandLine(argc, argv, given);
  {
    TLock lock(optmutex);
    TAVSettings = given;
    PublishSettings();
  }
  printf("Ok\nSettings checking .. ");
  String message;
  const int loaded = TTAVSettings::LoadOptions(message);
  if (!loaded) {
    printf("Error\n%s\nPlease check '%s' file\n\n", message.CStr(), given.cfgfile);
    return false;
  }
  if (message.Length() == 0) {
    printf("Ok\n");
  } else {
    printf("Warning: %s\n", message.CStr());
  }
  return true;
}

void ShowMachine() {
  printf("CPU testing .. Ok\n");
  if (!SettingsInForce()->verbosedetail) return;
  struct stat info;
  TSearchRec entry;
  printf("stat.size: %d\n", static_cast<int>(sizeof info.st_size));
  printf("srec.size: %d\n", static_cast<int>(sizeof entry.Size));
  printf("int64 = long long\n");
}

bool TestPort() {
  printf("Sock testing .. ");
  String error;
  const TFd listener = Listen(error);
  if (!listener.IsOpen()) {
    printf("TCP listen error:\n%s\n\n", error.CStr());
    return false;
  }
  printf("Ok\n");
  shutdown(listener.Get(), SHUT_RDWR);
  return true;
}

void CreatePidFile(TPidFile& pidFile) {
  const TSettingsPtr settings = SettingsInForce();
  if (!settings->interactive && settings->pidfile.Length() > 0) pidFile.createpidfile(settings->pidfile);
}

// Ends the process from inside: sessions may still run, and what they use, the loop's wake descriptor first, must
// not be taken down under them.
[[noreturn]] void End(TExitStatus status) {
  GiveUpRequests(nullptr, nullptr);
  fflush(stdout);
  _exit(status);
}

// Serves until the agent is told to end.  Returns when what it needs for that can't be had now.
void Serve(char** argv, char** envp) {
  String error;
  TFd listener = Listen(error);
  if (!listener.IsOpen()) {
    printf("TCP listen error: %s\n\n", error.CStr());
    End(kExitNotServing);
  }
  TPidFile pidFile;
  TMainLoop loop(std::move(listener), pidFile, argv, envp);
  if (loop.StartError() != 0) {
    showmessage("Cannot wait for connections: %s\n", kNoPeer, mtFailure, 1, strerror(loop.StartError()));
    return;
  }
  CreatePidFile(pidFile);
  showmessage("Listening...\n", kNoPeer, mtInfo, 0);
  End(loop.Run());
}

void BeginToServe(char** argv, char** envp) {
  RouteDiagnostics();
  RememberCommandLine(argv, envp);
  RefreshCrashRecord();
  InstallFaultHandler();
  AdoptChildren();
  Serve(argv, envp);
}

// A daemon has nobody left to tell that it could not start, so a shortage of the moment is waited out.
[[noreturn]] void ServeInSpiteOfShortages(char** argv, char** envp) {
  for (int attempt = 0; attempt < kServeAttempts; ++attempt) {
    try {
      BeginToServe(argv, envp);
    } catch (const std::exception&) {
      showmessage("Error: not enough memory\n", kNoPeer, mtFailure, 0);
    }
    SetWakeFd(-1);
    sleep(1);
  }
  End(kExitNotServing);
}

}  // namespace

int main(int argc, char** argv, char** envp) try {
  PrepareProcess();
  ShowBanner();
  printf("Command line checking .. ");
  if (!LoadSettings(argc, argv)) return kExitSettings;
  ShowMachine();
  if (!TestBasicEncryption() || !TestPacketEncryption()) return kExitEncryption;
  if (!TestPort()) return kExitNotServing;

  if (!SettingsInForce()->interactive && daemon_init() != 0) {
    fprintf(stderr, "Error initializing daemon: %s\n", strerror(errno));
    return kExitNoFork;
  }
  ServeInSpiteOfShortages(argv, envp);
} catch (const std::exception&) {
  // Only the start can come here; what follows it gets over a lack of memory.
  fputs("Error: not enough memory\n", stderr);
  End(kExitNotServing);
}
