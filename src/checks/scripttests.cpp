#include "checks/scripttests.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "checks/scriptfiles.h"
#include "config/settings.h"
#include "core/clock.h"
#include "core/closers.h"
#include "core/cmdline_expand.h"
#include "core/process.h"
#include "core/requester.h"
#include "core/tempfile.h"
#include "core/writeall.h"
#include "protocol/parameters.h"
#include "protocol/readparam.h"
#include "protocol/results.h"

namespace {

constexpr int kLineSize = 512;
constexpr int kMaxListSize = 16 * 1024 * 1024;
constexpr mode_t kScriptMode = 0775;
constexpr const char* kResultMark = "scriptres:";

// Until its exec, the child that another thread forks has a copy of our descriptors; while one of them can write to
// the script, nobody can execute it ("text file busy").  The kernel grants a read lease once there is none.
void WaitUntilNobodyWrites(const char* path) {
  const TFd script(open(path, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!script.IsOpen()) return;

  (void)fcntl(script.Get(), F_SETSIG, SIGURG);  // ignored by default, for the moment the lease is held
  for (int attempt = 0; attempt < 200; attempt++) {
    if (fcntl(script.Get(), F_SETLEASE, F_RDLCK) == 0 || errno != EAGAIN) break;
    SleepUs(5000);
  }
  (void)fcntl(script.Get(), F_SETLEASE, F_UNLCK);
}

// Null when the script is there and can be run; else what the reply is to say.
const char* MakeScript(const char* path, const String& text) {
  const TFd script = CreatePrivateFile(path, S_IRUSR | S_IWUSR, O_WRONLY);
  if (!script.IsOpen()) return "Cannot create temp file";
  if (!WriteAll(script.Get(), text.Data(), text.Length())) return "cannot create temp file";
  if (fchmod(script.Get(), kScriptMode) != 0) return "Cannot set exec flag for script";
  return nullptr;
}

int SecondsToMs(int seconds) {
  return static_cast<int>(
      std::clamp(seconds * 1000LL, static_cast<long long>(INT_MIN), static_cast<long long>(INT_MAX)));
}

bool IsResultLine(const String& line) {
  const int size = static_cast<int>(strlen(kResultMark));
  return line.Length() >= size && strncasecmp(line.Data(), kResultMark, strlen(kResultMark)) == 0;
}

// Like fgets(), which would need a search for the line's length in a cleared buffer.  Returns the bytes read.
int ReadLine(FILE* file, char (&line)[kLineSize]) {
  int n = 0;
  for (int c = 0; n < kLineSize - 1 && c != '\n' && (c = getc_unlocked(file)) != EOF;) {
    line[n++] = static_cast<char>(c);
  }
  line[n] = '\0';
  return n;
}

// Each line is looked at once, whatever the output's size; once the result line is known, only the lines wanted are
// read.  False when the output can't be read to where it was wanted.
bool ReadScriptOutput(FILE* file, int wanted, String& result, String& output) {
  struct stat status;
  if (fstat(fileno(file), &status) != 0) return false;
  char buf[kLineSize];
  String line;
  bool found = false;
  int n = 0;
  // What the script left running may write on for ever; only what is there now counts.
  for (long long read = 0; read < status.st_size && (n = ReadLine(file, buf)) > 0; read += n) {
    line.CopyData(buf, -1);
    if (line.Trim().Length() == 0) continue;

    if (wanted > 0) {
      (output += line) += "\r\n";
      wanted = output.Length() < kMaxListSize ? wanted - 1 : 0;
    }
    if (!found) {
      found = IsResultLine(line);
      std::swap(result, line);
    }
    if (wanted <= 0 && found) break;
  }
  return !ferror(file);
}

}  // namespace

void ProcessTest_External(const BVRequest& request, TAVReply& reply) {
  namespace at = params::external;
  const String cmdline = ReadText(request, at::kCommandLine);
  String error;
  int timeoutMs = 0, exitcode = 0;
  if (!ReadNumber(request, at::kTimeoutMs, timeoutMs)) return Answer(reply, kWrongParameter, "Wrong parameter");
  if (cmdline.Length() == 0) {
    reply.SetResult(kWrongParameter);  // without a text, unlike the action of the same kind
    return;
  }
  if (!SystemEx(cmdline.CStr(), nullptr, timeoutMs, exitcode, error)) return Answer(reply, kNotExamined, error);

  reply.SetResult(kDone);
  reply.AddIntParam(exitcode);
}

void ProcessTest_ShellScript(const BVRequest& request, TAVReply& reply) {
  namespace at = params::shell_script;
  const TSettingsPtr settings = SettingsInForce();
  TTempFile script, output;
  if (!TakeUniqueName(script)) return Answer(reply, kNotExamined, "Cannot get temp file");
  const String text = ReadLines(request, at::kScript).ReplaceAll("\r\n", "\n", 1);
  const char* refusal = MakeScript(script.path, text);
  if (refusal != nullptr) return Answer(reply, kNotExamined, refusal);
  (void)TakeUniqueName(output);  // without a name there are no results, which is said below

  const String arguments = ReadLines(request, at::kArguments);
  const String cmdline = ExpandCommandLine(ReadText(request, at::kCommandLine), script.path, arguments.CStr());
  if (!SleepUnlessGone(settings->delayforscripts)) return;
  WaitUntilNobodyWrites(script.path);

  const int timeoutMs = SecondsToMs(ReadLeadingNumber(request, at::kTimeoutS));
  String error;
  int exitcode = 0;  // of no interest
  if (!SystemEx2(cmdline.CStr(), nullptr, output.path, output.path, output.path, timeoutMs, exitcode, error)) {
    return Answer(reply, kNotExamined, String("Script execution error: ") + error);
  }
  const TFile results = OpenResults(output.path);
  if (results == nullptr) return Answer(reply, kNotExamined, "Cannot get script results");

  String result, lines;
  if (!ReadScriptOutput(results.get(), ReadLeadingNumber(request, at::kLines), result, lines)) {
    return Answer(reply, kNotExamined, "Cannot get script results");
  }
  reply.SetResult(kDone);
  reply.AddStringParam(result, 1);
  reply.AddStringParam(lines, 1);
}
