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

#include "config/settings.h"
#include "core/clock.h"
#include "core/closers.h"
#include "core/cmdline_expand.h"
#include "core/paths.h"
#include "core/process.h"
#include "core/requester.h"
#include "core/tempfile.h"
#include "core/tempregister.h"
#include "core/writeall.h"
#include "protocol/parameters.h"
#include "protocol/readparam.h"
#include "protocol/results.h"

namespace {

constexpr int kFixedNameSize = 36;
constexpr int kLineSize = 512;
constexpr int kNumberSize = 4096;  // more digits than any number that means something
constexpr int kMaxListSize = 16 * 1024 * 1024;
constexpr int kCpuTimeoutMs = 8000;
constexpr mode_t kScriptMode = 0775;
constexpr const char* kResultMark = "scriptres:";

// What the result file of a shell line holds before.  It is still there when the shell never got to the
// redirection: a name with an open quote or a '#' in it can do that.
constexpr char kUntouched[] = "not opened by the shell\n";
constexpr int kUntouchedSize = sizeof(kUntouched) - 1;

bool TakeUniqueName(TTempFile& file) {
  return gettempfilename(file.path, sizeof(file.path), nullptr) != 0 && file.Register();
}

// `format` has one "%ld", for the thread's number.
bool TakeThreadName(TTempFile& file, const char* format) {
  char name[kFixedNameSize];
  snprintf(name, sizeof(name), format, static_cast<long>(GetUniqueThreadID()));
  return gettempfilename(file.path, sizeof(file.path), name) != 0 && file.Register();
}

// Null when there are no results, or not ours.
TFile OpenResults(const char* path) {
  TFd fd = OpenPrivateFile(path);
  TFile file(fd.IsOpen() ? fdopen(fd.Get(), "r") : nullptr);
  if (file != nullptr) (void)fd.Release();  // the stream's from here on
  return file;
}

// Reads one number with a scanf format, in bounded memory whatever the output is.
template <typename T>
bool ReadNumber(FILE* file, const char* format, T* value) {
  int c;
  do {
    c = getc(file);
  } while (c == ' ' || (c >= '\t' && c <= '\r'));
  if (c == EOF) return false;

  String text(kNumberSize);
  text.AddChar(static_cast<char>(c));
  while (text.Length() < kNumberSize - 1 && (c = getc(file)) != EOF) text.AddChar(static_cast<char>(c));
  return sscanf(text.CStr(), format, value) == 1;
}

// --- helper scripts ---

// A script of the administrator's that measures something.
struct THelper {
  const char* name;  // in the replies
  String TTAVSettings::*script;
  const char* output;  // name of the file for its output, with the place of the thread's number
};
constexpr THelper kProcessCount = {"ProcCnt", &TTAVSettings::proccntscript, "tmpPtav-%ld.txt"};
constexpr THelper kProcessList = {"ProcList", &TTAVSettings::proclistscript, "tmpPtav-%ld.txt"};
constexpr THelper kCpuUsage = {"CPUUsage", &TTAVSettings::cpuusagescript, "tmpCtav-%ld.txt"};

// True when the helper is there and `output` has its name; else the reply says what is missing.  `fault` is what
// the request lacks, or null: it counts for less than a missing script.
bool Prepare(const THelper& helper, const TTAVSettings& settings, const char* fault, TTempFile& output,
             TAVReply& reply) {
  const String& script = settings.*helper.script;
  const auto refuse = [&reply](const String& text) { return Answer(reply, kNotExamined, text), false; };
  if (script.Length() == 0) return refuse(String(helper.name) + " script is not speified");
  if (!FileExists(script.CStr())) return refuse(String(helper.name) + " script doesn't exist");
  if (fault != nullptr) return Answer(reply, kWrongParameter, fault), false;
  return TakeThreadName(output, helper.output) || refuse("cannot get temp file");
}

// In single quotes, where the shell takes everything but the quote itself as it stands.
String Quoted(const char* path) {
  String quoted = "'";
  for (; *path != '\0'; path++) {
    if (*path == '\'') {
      quoted += "'\\''";
    } else {
      quoted += *path;
    }
  }
  return quoted += '\'';
}

// The first redirection empties the file, the others append to it, so that no stream overwrites another.
String Redirections(const char* path) {
  const String file = Quoted(path);
  return String(" 1>") + file + " 1>>" + file + " 2>>" + file + " 3>>" + file;
}

bool LeftUntouched(FILE* file) {
  char head[kUntouchedSize];
  struct stat status;
  if (fstat(fileno(file), &status) != 0 || status.st_size != kUntouchedSize) return false;
  return pread(fileno(file), head, sizeof(head), 0) == kUntouchedSize &&
         memcmp(head, kUntouched, sizeof(head)) == 0;
}

// Runs `command` with its output in `output` and opens that.  Null when it failed; the reply says why.
TFile RunHelper(const String& command, const TTempFile& output, TAVReply& reply) {
  TFile results;
  const TFd made = CreatePrivateFile(output.path, S_IRUSR | S_IWUSR, O_WRONLY);
  if (made.IsOpen()) {
    (void)WriteAll(made.Get(), kUntouched, kUntouchedSize);  // a full disk: the file counts as touched
    String line = command + Redirections(output.path);
    if (RunShell(line.CStr()) == -1) {
      Answer(reply, kNotExamined, "Cannot execute script");
      return results;
    }
    results = OpenResults(output.path);
  }
  if (results == nullptr || LeftUntouched(results.get())) {
    Answer(reply, kNotExamined, "Cannot get script results");
    return nullptr;
  }
  return results;
}

// --- scripts of the server ---

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

void ProcessTest_Process(const BVRequest& request, TAVReply& reply) {
  const TSettingsPtr settings = SettingsInForce();
  const String name = ReadText(request, params::process::kName);
  const char* fault = name.Length() == 0 ? "Name of the process is not specified" : nullptr;
  TTempFile output;
  if (!Prepare(kProcessCount, *settings, fault, output, reply)) return;
  const TFile results = RunHelper(settings->proccntscript + ' ' + name, output, reply);
  if (results == nullptr) return;

  int count = 0;
  if (!ReadNumber(results.get(), "%d", &count)) return Answer(reply, kNotExamined, "Script error");
  reply.SetResult(kDone);
  reply.AddIntParam(count);
}

void ProcessTest_CPU(const BVRequest&, TAVReply& reply) {
  const TSettingsPtr settings = SettingsInForce();
  TTempFile output;
  if (!Prepare(kCpuUsage, *settings, nullptr, output, reply)) return;

  if (!SleepUnlessGone(settings->delayforscripts)) return;
  int exitcode = 0;  // of no interest
  String error;
  const char* script = settings->cpuusagescript.CStr();
  if (!SystemEx2(script, nullptr, output.path, output.path, output.path, kCpuTimeoutMs, exitcode, error)) {
    return Answer(reply, kNotExamined, "Cannot execute script");
  }
  const TFile results = OpenResults(output.path);
  if (results == nullptr) return Answer(reply, kNotExamined, "Cannot get script results");

  float load = 0;
  if (!ReadNumber(results.get(), "%f", &load)) return Answer(reply, kNotExamined, "Script error");
  reply.SetResult(kDone);
  reply.AddRealParam(static_cast<double>(load));
}

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

void ProcessInfo_ProcessesList(const BVRequest&, TAVReply& reply) {
  const TSettingsPtr settings = SettingsInForce();
  TTempFile output;
  if (!Prepare(kProcessList, *settings, nullptr, output, reply)) return;
  const TFile results = RunHelper(settings->proclistscript, output, reply);
  if (results == nullptr) return;

  String list;
  char line[kLineSize] = "";
  while (!feof(results.get()) && list.Length() < kMaxListSize) {
    // At the end of the file the line before is still in the buffer and is taken once more: servers expect it.
    (void)!fgets(line, sizeof(line), results.get());
    if (ferror(results.get())) return Answer(reply, kNotExamined, "Cannot get script results");
    const size_t length = strlen(line);
    if (length > 0 && line[length - 1] == '\n') line[length - 1] = '\0';
    if (line[0] != '\0') (list += line) += "\r\n";
  }
  reply.SetResult(kDone);
  reply.AddStringParam(list, 1);
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
