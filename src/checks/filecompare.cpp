#include "checks/filecompare.h"

#include <string.h>

#include <algorithm>
#include <memory>

#include "checks/textsearch.h"
#include "core/filemacros.h"
#include "core/inputfile.h"
#include "core/paths.h"
#include "protocol/parameters.h"
#include "protocol/readparam.h"
#include "protocol/results.h"

namespace {

namespace two_files = params::file_compare::two_files;
namespace file_in_file = params::file_compare::file_in_file;
namespace text_in_file = params::file_compare::text_in_file;

constexpr size_t kBlock = 64 * 1024;  // bytes a read, of each file: both blocks stay in the cache

// What a mode does with the files once the first one is known to exist; leaving the reply alone answers that a file
// does not exist.
using TCompare = void (*)(const BVRequest& request, struct TNamedFile& first, int secondMacro, TAVReply& reply);

// A file as it is when the test begins: it is examined once, and everything that is compared was true together.
struct TNamedFile {
  TNamedFile(const BVRequest& request, int line, int macro) : name(ReadText(request, line)) {
    resolved = !macro || ResolveFileMacros(name);
  }
  bool Exists() { return resolved && ExamineFile(name.CStr(), status) && S_ISREG(status.st_mode); }

  String name;
  bool resolved;
  struct stat status;
};

void AnswerOutcome(TAVReply& reply, long long outcome) {
  if (outcome < 0) return Answer(reply, kNotExamined, "I/O Error");
  reply.SetResult(kDone);
  reply.AddBoolParam(outcome > 0);
}

void CompareTwoFiles(const BVRequest& request, TNamedFile& first, int secondMacro, TAVReply& reply) {
  TNamedFile second(request, two_files::kSecond, secondMacro);
  if (!second.Exists()) return;

  const int times = ReadFlag(request, two_files::kTimes);
  const int sizes = ReadFlag(request, two_files::kSizes);
  const int contents = ReadFlag(request, two_files::kContents);
  int equal = 1;
  if (times && first.status.st_mtime != second.status.st_mtime)
    equal = 0;
  else if (sizes)
    equal = first.status.st_size == second.status.st_size;
  if (equal && contents) equal = CompareFiles(first.name.CStr(), second.name.CStr());
  AnswerOutcome(reply, equal);
}

void FindSecondFile(const BVRequest& request, TNamedFile& first, int, TAVReply& reply) {
  TNamedFile second(request, file_in_file::kSecond, 0);
  if (!second.Exists()) return;
  if (second.status.st_size > kMaxPatternFile)
    return Answer(reply, kNotExamined, "The size of the second file cannot exceed 8Mb");
  AnswerOutcome(reply, FindFileInFile(first.name.CStr(), second.name.CStr()));
}

void FindString(const BVRequest& request, TNamedFile& first, int, TAVReply& reply) {
  String text = ReadText(request, text_in_file::kText);
  const int caseSensitive = ReadFlag(request, text_in_file::kCaseSensitive);
  const int wholeWord = ReadFlag(request, text_in_file::kWholeWord);
  AnswerOutcome(reply, FindStrInFile(first.name.CStr(), text, caseSensitive, wholeWord));
}

void RefuseMode(const BVRequest&, TNamedFile&, int, TAVReply& reply) {
  Answer(reply, kWrongParameter, "Wrong parameter");
}

constexpr struct TCompareMode {
  const char* mode;
  TCompare compare;
  int firstMacro;   // lines that switch the macros of the two files on
  int secondMacro;  // 0: there is none, or it has no effect
} kCompareModes[] = {
    {"1", CompareTwoFiles, two_files::kFirstMacros, two_files::kSecondMacros},
    {"2", FindSecondFile, file_in_file::kMacros, 0},
    {"3", FindString, text_in_file::kMacros, 0},
    {"4", RefuseMode, two_files::kFirstMacros, 0},
};
constexpr TCompareMode kUnknownMode = {"", RefuseMode, 0, 0};

const TCompareMode& ModeNamed(const String& name) {
  for (const TCompareMode& row : kCompareModes)
    if (name == row.mode) return row;
  return kUnknownMode;
}

}  // namespace

int CompareFiles(const char* path1, const char* path2) {
  TInputFile file1, file2;
  if (!path1 || !*path1 || !path2 || !*path2 || !file1.Open(path1) || !file2.Open(path2)) return -1;

  const std::unique_ptr<char[]> block1(new char[kBlock]), block2(new char[kBlock]);
  for (;;) {
    const long long n1 = file1.Read(block1.get(), kBlock);
    const long long n2 = n1 < 0 ? -1 : file2.Read(block2.get(), kBlock);
    if (n2 < 0) return -1;
    const auto common = static_cast<size_t>(std::min(n1, n2));
    if (memcmp(block1.get(), block2.get(), common) != 0) return 0;
    if (common < kBlock) return 1;
  }
}

void ProcessTest_FileCompare(const BVRequest& request, TAVReply& reply) {
  Answer(reply, kNotExamined, "File doesn`t exist");
  const TCompareMode& mode = ModeNamed(ReadText(request, params::file_compare::kMode));
  const auto switchAt = [&](int line) { return line > 0 && ReadFlag(request, line); };

  TNamedFile first(request, params::file_compare::kFirst, switchAt(mode.firstMacro));
  if (!first.Exists()) return;
  mode.compare(request, first, switchAt(mode.secondMacro), reply);
}
