#include "checks/textlog.h"

#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>

#include "checks/linefilter.h"
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

// Line ends of a block, in order: the next one of either kind is looked up once.
class TLineEnds {
 public:
  explicit TLineEnds(const char* blockEnd) : end(blockEnd) {}

  // The first line feed or carriage return in [from, end), or the end.  `from` never goes back.
  const char* Next(const char* from) {
    if (!lineFeed || lineFeed < from) lineFeed = FindByte(from, '\n');
    if (!carriageReturn || carriageReturn < from) carriageReturn = FindByte(from, '\r');
    return std::min(lineFeed, carriageReturn);
  }

 private:
  const char* FindByte(const char* from, char c) const {
    const void* hit = memchr(from, c, static_cast<size_t>(end - from));
    return hit ? static_cast<const char*>(hit) : end;
  }

  const char* end;
  const char* lineFeed = nullptr;
  const char* carriageReturn = nullptr;
};

// Cuts blocks into lines and tests them.
class TLogScan {
 public:
  TLogScan(long long startPosition, const TTextLogFilter& filter1, const TTextLogFilter* filter2, int all)
      : position(startPosition),
        first(Prepared(filter1)),
        useSecond(filter2 != nullptr),
        second(filter2 ? Prepared(*filter2) : TLineFilter(String(), 0, 0, 0)),
        scanAll(all) {}

  // False when no more is wanted.
  bool Take(const char* block, size_t n) {
    const char* end = block + n;
    TLineEnds ends(end);
    for (const char* from = block; from < end;) {
      const char* stop = ends.Next(from);
      counted += stop - from;
      if (stop == end) {
        Keep(from, stop - from);
        return true;
      }
      counted++;
      if (!EndLine(from, stop - from)) return false;
      from = stop + 1;
    }
    return true;
  }

  long long position;  // behind the last line that was not empty
  long long result = 0;
  int status = 0;  // of the last match
  String matchLine;

 private:
  static TLineFilter Prepared(const TTextLogFilter& f) {
    return TLineFilter(f.expression, f.isExpression, f.caseSensitive, f.wholeWord);
  }

  // Adds to the line that began in an earlier block, or begins one.
  void Keep(const char* bytes, long long n) {
    tooLong = tooLong || n > kLongestLine - static_cast<long long>(pending.size());
    if (tooLong)
      pending = std::string();
    else
      pending.append(bytes, static_cast<size_t>(n));
  }

  bool EndLine(const char* rest, long long n) {
    if (n == 0 && pending.empty() && !tooLong) return true;  // its end is counted with the next line

    const long long start = position;
    position += counted;
    counted = 0;
    if (pending.empty() && !tooLong) return Test(start, rest, static_cast<int>(n));

    Keep(rest, n);
    const std::string line = std::move(pending);
    const bool passOver = tooLong;
    pending = std::string();
    tooLong = false;
    return passOver || Test(start, line.data(), static_cast<int>(line.size()));
  }

  bool Test(long long start, const char* line, int n) {
    int match = first.Search(line, n), which = 1;
    if (match == 0 && useSecond) {
      match = second.Search(line, n);
      which = 0;
    }
    if (match == 0) return true;

    result = start + match;
    status = which;
    matchLine.CopyData(line, n);
    return scanAll != 0;
  }

  TLineFilter first;
  bool useSecond;
  TLineFilter second;
  int scanAll;
  long long counted = 0;  // bytes since `position`
  std::string pending;    // the line so far, from earlier blocks
  bool tooLong = false;   // the line has outgrown what is kept
};

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
  long long readTo = scan.position;
  for (bool wanted = true; wanted;) {
    const long long got = file.Read(block.get(), kBlock);
    if (got < 0 && LeavesOpen(errno)) return -1;
    if (got <= 0) break;
    readTo += got;
    const long long lastMatch = scan.result;
    wanted = scan.Take(block.get(), static_cast<size_t>(got)) && got == static_cast<long long>(kBlock);
    if (scan.result != lastMatch && !Refresh(file, size, age)) return -1;
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

  TLogScan scan(position, filter1, usefilter2 ? &filter2 : nullptr, scanall);
  const long long readTo = ReadLog(file, scan, filesize, age);
  if (readTo < 0) return Fail(errno, error, kCannotOpen);
  position = scan.position;
  if (scan.result > 0) {
    status = scan.status;
    matchline = scan.matchLine;
  }
  // After a first match the file stays "changed", so that the next check goes on behind it.  It stays so too when
  // it has grown past what was read, or could not be read: those lines must not wait for the next change.
  if ((scan.result == 0 || scanall) && readTo >= filesize) {
    knownsize = filesize;
    knownage = age;
  }
  return scan.result;
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
