#include "checks/helperscripts.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "checks/scriptfiles.h"
#include "config/settings.h"
#include "core/closers.h"
#include "core/paths.h"
#include "core/process.h"
#include "core/requester.h"
#include "core/tempfile.h"
#include "core/writeall.h"
#include "protocol/parameters.h"
#include "protocol/readparam.h"
#include "protocol/results.h"

namespace {

constexpr int kLineSize = 512;
constexpr int kNumberSize = 4096;  // more digits than any number that means something
constexpr int kMaxListSize = 16 * 1024 * 1024;
constexpr int kCpuTimeoutMs = 8000;

// What the result file of a shell line holds before.  It is still there when the shell never got to the
// redirection: a name with an open quote or a '#' in it can do that.
constexpr char kUntouched[] = "not opened by the shell\n";
constexpr int kUntouchedSize = sizeof(kUntouched) - 1;

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
