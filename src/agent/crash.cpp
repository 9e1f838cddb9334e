#include "agent/crash.h"

#include <string.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "agent/crashline.h"
#include "agent/flags.h"
#include "agent/pidfile.h"
#include "agent/replace.h"
#include "config/settings.h"

namespace {

constexpr size_t kLongestPath = 4096;

struct TCrashRecord {
  bool console = false;
  char failures[kLongestPath] = {};  // logs; empty: none
  char verbose[kLongestPath] = {};
  char tavpath[kLongestPath] = {};
  long zoneSeconds = 0;  // local time minus UTC
};

// Two records in turns: a fault reads one while the main thread prepares the other.
TCrashRecord records[2];
std::atomic<int> current{0};
char** startArgv = nullptr;
char** startEnvp = nullptr;
TSettingsPtr remembered;  // main thread

void CopyPath(char (&to)[kLongestPath], const String& path) {
  to[0] = '\0';
  if (static_cast<size_t>(path.Length()) < kLongestPath) path.StrCpy(to, -1);
}

void WriteLine(int fd, const TCrashLine& line) {
  (void)!write(fd, line.Data(), line.Size());  // there is nobody to tell that it failed
}

void AppendLine(const char* log, const TCrashLine& line) {
  if (log[0] == '\0') return;
  const TFd file = OpenLog(log);
  if (file.IsOpen()) WriteLine(file.Get(), line);
}

}  // namespace

void RememberCommandLine(char** argv, char** envp) {
  startArgv = argv;
  startEnvp = envp;
}

void RefreshCrashRecord() {
  const time_t now = time(nullptr);
  tm local = {};
  localtime_r(&now, &local);
  const TSettingsPtr settings = SettingsInForce();
  const TCrashRecord& last = records[current];
  if (settings == remembered && local.tm_gmtoff == last.zoneSeconds) return;

  TCrashRecord& next = records[1 - current];
  next.console = settings->interactive != 0;
  CopyPath(next.failures, settings->logfails ? LogPath(settings->badlogfile, settings->cfgfile) : String());
  CopyPath(next.verbose, settings->verbose ? LogPath(settings->verboselogfile, settings->cfgfile) : String());
  CopyPath(next.tavpath, settings->tavpath);
  next.zoneSeconds = local.tm_gmtoff;
  current = 1 - current;
  remembered = settings;
}

void CrashMessage(const char* text, MsgType type) {
  const TCrashRecord& record = records[current];
  timespec utc;
  clock_gettime(CLOCK_REALTIME, &utc);
  const long seconds = utc.tv_sec + record.zoneSeconds;
  if (record.console) WriteLine(STDOUT_FILENO, ConsoleLine(seconds, text));
  const TCrashLine line = LogLine(seconds, text);
  if (type == mtFailure) AppendLine(record.failures, line);
  AppendLine(record.verbose, line);
}

void RestartFromRecord() {
  const TCrashRecord& record = records[current];
  CrashMessage("Reload request received. Executing..\n", mtInfo);
  RemovePidFile();
  if (CanStart(record.tavpath)) GiveUpRequests(nullptr, nullptr);
  ReplaceProcess(record.tavpath, startArgv, startEnvp);
  CrashMessage("Error: cannot start new instance\n", mtFailure);
}
