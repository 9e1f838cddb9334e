#include "agent/showmessage.h"

#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <exception>
#include <utility>

#include "config/settings.h"
#include "core/diag.h"
#include "core/mutex.h"
#include "core/paths.h"
#include "core/tempdir.h"
#include "core/writeall.h"
#include "net/resolver.h"

namespace {

TMutex showmutex;  // held for one message: its console line and its log lines

constexpr int kMaxOpens = 3;  // of a log that is being moved away

// Where one message goes.
struct TDestinations {
  bool console;
  const String* logs[2];

  bool Any() const { return console || logs[0] != nullptr || logs[1] != nullptr; }
};

TDestinations DestinationsOf(MsgType type, const TTAVSettings& settings) {
  TDestinations to = {settings.interactive != 0, {nullptr, nullptr}};
  if (type == mtSuccess && settings.logsuccess) to.logs[0] = &settings.oklogfile;
  if (type == mtFailure && settings.logfails) to.logs[0] = &settings.badlogfile;
  if (settings.verbose && settings.verboselogfile.Length() > 0) to.logs[1] = &settings.verboselogfile;
  return to;
}

// A line that was cut has lost its line end; it gets one back in the place of its last byte.
void CloseLine(char* line, int formattedLength) {
  if (formattedLength >= kLogLineBytes + 1) line[kLogLineBytes - 1] = '\n';
}

// Somebody else may have put there what is no log of ours.  System calls only.
bool OthersMayWriteBeside(const char* path) {
  char folder[PATH_MAX];
  const char* slash = strrchr(path, '/');
  const size_t n = slash == nullptr ? 0 : static_cast<size_t>(slash - path) + 1;
  if (n >= sizeof folder) return true;
  memcpy(folder, path, n);
  folder[n] = '\0';
  struct stat status;
  return stat(n == 0 ? "." : folder, &status) != 0 || OthersMayWrite(status);
}

}  // namespace

void showmessage(const char* format, in_addr peer, MsgType type, int formatted, ...) {
  const TSettingsPtr settings = SettingsInForce();
  if (type == mtDebug && !settings->verbosedetail) return;
  const TDestinations to = DestinationsOf(type, *settings);
  if (!to.Any()) return;

  char text[kLogLineBytes + 1];
  int length;
  if (formatted) {
    va_list args;
    va_start(args, formatted);
    length = vsnprintf(text, sizeof text, format, args);
    va_end(args);
  } else {
    length = snprintf(text, sizeof text, "%s", format);
  }
  CloseLine(text, length);

  char address[24] = "tav\t";
  if (peer.s_addr != 0) inet_ntoa_safe(peer, address, sizeof address);

  TLock lock(showmutex);  // taken before the clock is read, so that the lines stand in the order of their times
  const time_t now = time(nullptr);
  tm local = {};
  localtime_r(&now, &local);
  char clock[16], line[kLogLineBytes + 1];
  snprintf(clock, sizeof clock, "%2.2d:%2.2d:%2.2d", local.tm_hour, local.tm_min, local.tm_sec);
  if (to.console) {
    CloseLine(line, snprintf(line, sizeof line, "[tav][%s]\t %s\t %s", clock, address, text));
    fputs(line, stdout);
    fflush(stdout);
  }
  if (to.logs[0] == nullptr && to.logs[1] == nullptr) return;
  CloseLine(line, snprintf(line, sizeof line, "[%2.2d/%2.2d/%2.2d %s]\t %s\t %s", local.tm_mon + 1, local.tm_mday,
                           local.tm_year + 1900, clock, address, text));
  for (const String* log : to.logs) {
    try {
      if (log != nullptr) writelog(LogPath(*log, settings->cfgfile), line);
    } catch (const std::exception&) {
      // A lack of memory costs the line, never what the message is about.
    }
  }
}

String LogPath(const String& path, const char* cfgfile) {
  if (path.Length() == 0 || ExtractFilePath(path).Length() > 0) return path;
  const String folder = ExtractFilePath(String(cfgfile));
  return folder.Length() == 0 ? path : IncludeTrailingPathDelimiter(folder) + path;
}

TFd OpenLog(const char* path) {
  const bool shared = OthersMayWriteBeside(path);
  // Not blocking: a pipe without a reader must not hold up the agent.
  const int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | (shared ? O_NOFOLLOW : 0);
  for (int attempt = 0; attempt < kMaxOpens; ++attempt) {
    TFd file(open(path, flags, kLogFileMode));
    struct stat opened, named;
    if (!file.IsOpen() || fstat(file.Get(), &opened) != 0) return TFd();
    if (!S_ISREG(opened.st_mode) && !S_ISCHR(opened.st_mode)) return TFd();
    if (!shared) return file;
    // A hard link leads astray as well.  Looked at by the name: the planter can take a name away meanwhile.
    if (lstat(path, &named) != 0 || named.st_ino != opened.st_ino || named.st_dev != opened.st_dev) continue;
    return named.st_nlink == 1 ? std::move(file) : TFd();
  }
  return TFd();
}

void writelog(const String& path, const char* line) {
  if (path.Length() == 0 || line == nullptr) return;

  const TFd file = OpenLog(path.CStr());
  if (!file.IsOpen()) return;
  (void)WriteAll(file.Get(), line,
                 static_cast<long long>(strlen(line)));  // a full disk costs the line, nothing else
}

String PeerText(const String& text) {
  String shown(text);
  for (int i = 1; i <= shown.Length(); ++i) {
    const unsigned char c = static_cast<unsigned char>(shown[i]);
    if (c < 32 || c == 127) shown[i] = '?';
  }
  return shown;
}

void RouteDiagnostics() {
  SetDiagSink([](const char* text, in_addr peer) { showmessage("%s", peer, mtDebug, 1, text); },
              [] { return SettingsInForce()->verbosedetail != 0; });
}
