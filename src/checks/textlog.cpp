#include "checks/textlog.h"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "checks/logscan.h"
#include "core/filemacros.h"
#include "core/inputfile.h"
#include "core/paths.h"
#include "core/trouble.h"
#include "protocol/parameters.h"
#include "protocol/readparam.h"
#include "protocol/results.h"

namespace {

constexpr size_t kBlock = 256 * 1024;  // bytes a read
constexpr int kOpenAttempts = 3;
constexpr int kReportedLine = 1024;  // characters of the matching line in a reply
constexpr const char* kCannotOpen = "Cannot open file";

// Whether a failure leaves open what the log holds.  Others are the log's own: it has gone, or can't be read.
bool LeavesOpen(int error) {
  return OwnTrouble(error) || error == EIO;
}

// Sets the text; `reason` is what errno shall be.
long long Fail(int reason, String& error, const String& text) {
  error = text;
  errno = reason;
  return -1;
}

// Ages travel as 32 bits.
long long KnownAge(long long age) {
  return static_cast<int>(age);
}

// Of a character device, which has no descriptor, they stay what its name has shown.
bool Refresh(const TInputFile& file, long long& size, long long& age) {
  if (file.Descriptor() < 0) return true;
  struct stat st;
  if (fstat(file.Descriptor(), &st) != 0) return false;
  size = st.st_size;
  age = KnownAge(st.st_mtime);
  return true;
}

bool OpenLog(TInputFile& file, const char* path) {
  for (int attempt = 1; !file.Open(path); attempt++) {
    if (attempt == kOpenAttempts) return false;
    for (unsigned left = 1; left > 0;) left = sleep(left);
  }
  return true;
}

// Offsets beyond 2 GiB are refused: the servers have always been told so.
bool SeekLog(TInputFile& file, long long position) {
  return position >= 0 && position <= INT_MAX && file.Seek(position);
}

// Reads to the end of the file, or as far as the scan wants to go; size and age are those of the last match.
// Returns the offset up to which was read, -1 when reading broke off.  A folder or a device has nothing to read.
long long ReadLog(TInputFile& file, TLogScan& scan, long long& size, long long& age) {
  const std::unique_ptr<char[]> block(new char[kBlock]);
  long long readTo = scan.Position();
  for (bool wanted = true; wanted;) {
    const long long got = file.Read(block.get(), kBlock);
    if (got < 0 && LeavesOpen(errno)) return -1;
    if (got <= 0) break;
    readTo += got;
    const long long lastMatch = scan.Result();
    wanted = scan.Take(block.get(), static_cast<size_t>(got)) && got == static_cast<long long>(kBlock);
    if (scan.Result() != lastMatch && !Refresh(file, size, age)) return -1;
  }
  return readTo;
}

struct TLogState {
  long long position = 0;
  long long knownSize = 0;
  long long knownAge = 0;
  long long fileSize = 0;
  int status = 0;
};

void AddState(TAVReply& reply, int more, const TLogState& state, const String& file) {
  reply.AddBoolParam(more);
  reply.AddIntParam(state.position);
  reply.AddIntParam(state.knownSize);
  reply.AddIntParam(state.knownAge);
  reply.AddIntParam(state.fileSize);
  reply.AddBoolParam(state.status);
  reply.AddStringParam(file, 1);
}

}  // namespace

void DecodeFilter(const BVRequest& request, TTextLogFilter& filter, int first) {
  namespace at = params::text_log;
  filter.expression = ReadLines(request, first + at::kExpression);
  filter.isExpression = ReadFlag(request, first + at::kIsExpression);
  filter.caseSensitive = ReadFlag(request, first + at::kCaseSensitive);
  filter.wholeWord = ReadFlag(request, first + at::kWholeWord);
}

long long CheckFileForExpression2(const char* path, long long& position, long long& knownsize, long long& knownage,
                                  const TTextLogFilter& filter1, const TTextLogFilter& filter2, int usefilter2,
                                  int scanall, int& status, String& matchline, String& error, long long& filesize) {
  matchline = "";
  error = "";
  struct stat st;
  if (!ExamineFile(path, st)) {
    const int reason = errno;
    filesize = -1;
    return Fail(reason, error, String("File \"") + ExtractFileName(path) + "\" not found");
  }
  filesize = st.st_size;
  long long age = KnownAge(st.st_mtime);
  if (knownsize != 0 && knownsize == filesize && knownage != 0 && knownage == age) return 0;

  TInputFile file;
  // Size and age are taken again of the file that was opened: the name may have moved on to another.
  if (!OpenLog(file, path) || !Refresh(file, filesize, age)) return Fail(errno, error, kCannotOpen);
  if (knownsize == 0) {
    position = filesize - 1;
    knownsize = filesize;
    knownage = age;
    return 0;
  }
  if (position > filesize) position = 0;  // rotated or cut
  if (!SeekLog(file, position)) return Fail(EINVAL, error, "fseek error");

  TLogScan scan(position, filter1, usefilter2 ? &filter2 : nullptr, scanall != 0);
  const long long readTo = ReadLog(file, scan, filesize, age);
  if (readTo < 0) return Fail(errno, error, kCannotOpen);
  position = scan.Position();
  if (scan.Result() > 0) {
    status = scan.Status();
    matchline = scan.MatchLine();
  }
  // After a first match the file stays "changed", so that the next check goes on behind it.  It stays so too when
  // it has grown past what was read, or could not be read: those lines must not wait for the next change.
  if ((scan.Result() == 0 || scanall) && readTo >= filesize) {
    knownsize = filesize;
    knownage = age;
  }
  return scan.Result();
}

void ProcessTest_TextLog2(const BVRequest& request, TAVReply& reply) {
  namespace at = params::text_log;
  TLogState state;
  if (!ReadNumber(request, at::kPosition, state.position) ||
      !ReadNumber(request, at::kKnownSize, state.knownSize) || !ReadNumber(request, at::kKnownAge, state.knownAge))
    return Answer(reply, kWrongParameter, "Wrong parameter");

  const int scanAll = ReadFlag(request, at::kScanAll);
  const int useSecond = ReadFlag(request, at::kUseSecond);
  TTextLogFilter filter1, filter2;
  DecodeFilter(request, filter1, at::kFirstFilter);
  if (useSecond) DecodeFilter(request, filter2, at::kSecondFilter);
  const int macros = ReadFlag(request, useSecond ? at::kMacrosBehindSecond : at::kMacros);

  const String name = ReadText(request, at::kFile);
  String file = macros ? GetFileUsingSpecialMacros(name) : GetFirstMatchedFile(name);
  if (file.Length() == 0) return Answer(reply, kNotExamined, "File does not exist");

  String line, error;
  const auto check = [&](TLogState& s) {
    return CheckFileForExpression2(file.CStr(), s.position, s.knownSize, s.knownAge, filter1, filter2, useSecond,
                                   scanAll, s.status, line, error, s.fileSize);
  };
  const long long result = check(state);
  if (result == -1) return Answer(reply, kNotExamined, error);

  reply.SetResult(kDone);
  reply.AddIntParam(result);
  reply.AddStringParam(line.Copy(1, kReportedLine), 0);
  if (scanAll) return AddState(reply, 0, state, file);

  // Is there another match behind this one?  Then the server asks again from where the first one ended.
  TLogState ahead = state;
  const long long next = check(ahead);
  if (next == -1 && LeavesOpen(errno)) return Answer(reply, kNotExamined, error);
  const bool more = next > 0;
  AddState(reply, more, more ? state : ahead, file);
}
