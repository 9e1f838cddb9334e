#include "agent/crash.h"

#include <string.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

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

char* Put(char* at, const char* text) {
  const size_t n = strlen(text);
  memcpy(at, text, n);
  return at + n;
}

char* PutNumber(char* at, long value, int digits) {
  for (int i = digits - 1; i >= 0; --i, value /= 10) at[i] = static_cast<char>('0' + value % 10);
  return at + digits;
}

// Year, month and day of a day number since 1970-01-01 (H. Hinnant, "chrono-Compatible Low-Level Date Algorithms").
void CivilDate(long day, long& year, long& month, long& dayOfMonth) {
  const long z = day + 719468, era = z / 146097, dayOfEra = z - era * 146097;
  const long yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const long shifted = (5 * dayOfYear + 2) / 153;
  dayOfMonth = dayOfYear - (153 * shifted + 2) / 5 + 1;
  month = shifted < 10 ? shifted + 3 : shifted - 9;
  year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
}

void WriteLine(int fd, const char* begin, const char* end) {
  // There is nobody to tell that it failed.
  if (write(fd, begin, static_cast<size_t>(end - begin)) < 0) return;
}

void AppendLine(const char* log, const char* begin, const char* end) {
  if (log[0] == '\0') return;
  const TFd file = OpenLog(log);
  if (file.IsOpen()) WriteLine(file.Get(), begin, end);
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
  const long seconds = utc.tv_sec + record.zoneSeconds, ofDay = seconds % 86400;
  char clock[9];
  PutNumber(Put(PutNumber(Put(PutNumber(clock, ofDay / 3600, 2), ":"), ofDay / 60 % 60, 2), ":"), ofDay % 60, 2);
  clock[8] = '\0';

  char line[160];
  char* const tail = line + 64;
  char* const end = Put(Put(tail, "\t tav\t\t "), text);
  if (record.console) {
    char* begin = tail - strlen("[tav][hh:mm:ss]");
    Put(Put(Put(begin, "[tav]["), clock), "]");
    WriteLine(STDOUT_FILENO, begin, end);
  }
  long year, month, day;
  CivilDate(seconds / 86400, year, month, day);
  char* const begin = tail - strlen("[mm/dd/yyyy hh:mm:ss]");
  char* at = PutNumber(Put(PutNumber(Put(PutNumber(Put(begin, "["), month, 2), "/"), day, 2), "/"), year, 4);
  Put(Put(Put(at, " "), clock), "]");
  if (type == mtFailure) AppendLine(record.failures, begin, end);
  AppendLine(record.verbose, begin, end);
}

void RestartFromRecord() {
  const TCrashRecord& record = records[current];
  CrashMessage("Reload request received. Executing..\n", mtInfo);
  RemovePidFile();
  if (CanStart(record.tavpath)) GiveUpRequests(nullptr, nullptr);
  ReplaceProcess(record.tavpath, startArgv, startEnvp);
  CrashMessage("Error: cannot start new instance\n", mtFailure);
}
