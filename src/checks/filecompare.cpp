#include "checks/filecompare.h"

#include <string.h>

#include <algorithm>
#include <memory>

#include "checks/textsearch.h"
#include "core/filemacros.h"
#include "core/inputfile.h"
#include "core/paths.h"
#include "protocol/results.h"
#include "protocol/tav_const.h"

namespace {

constexpr size_t kBlock = 256 * 1024;  // bytes a read, of each file

// What a mode does with the files once the first one is known to exist; leaving the reply alone answers that a file
// does not exist.
using TCompare = void (*)(const BVRequest& request, struct TNamedFile& first, int secondMacro, TAVReply& reply);

// A file as it is when the test begins: it is examined once, and everything that is compared was true together.
struct TNamedFile {
  TNamedFile(const BVRequest& request, int param, int macro) : name(request.GetParam(param, 1)) {
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
  TNamedFile second(request, 3, secondMacro);
  if (!second.Exists()) return;

  const int times = tavDecodeBool(request.GetParam(4, 1));
  const int sizes = tavDecodeBool(request.GetParam(5, 1));
  const int contents = tavDecodeBool(request.GetParam(6, 1));
  int equal = 1;
  if (times && first.status.st_mtime != second.status.st_mtime)
    equal = 0;
  else if (sizes)
    equal = first.status.st_size == second.status.st_size;
  if (equal && contents) equal = CompareFiles(first.name.CStr(), second.name.CStr());
  AnswerOutcome(reply, equal);
}

void FindSecondFile(const BVRequest& request, TNamedFile& first, int, TAVReply& reply) {
  TNamedFile second(request, 3, 0);
  if (!second.Exists()) return;
  if (second.status.st_size > kMaxPatternFile)
    return Answer(reply, kNotExamined, "The size of the second file cannot exceed 8Mb");
  AnswerOutcome(reply, FindFileInFile(first.name.CStr(), second.name.CStr()));
}

void FindString(const BVRequest& request, TNamedFile& first, int, TAVReply& reply) {
  String text = request.GetParam(3, 1);
  const int caseSensitive = tavDecodeBool(request.GetParam(4, 1));
  const int wholeWord = tavDecodeBool(request.GetParam(5, 1));
  AnswerOutcome(reply, FindStrInFile(first.name.CStr(), text, caseSensitive, wholeWord));
}

void RefuseMode(const BVRequest&, TNamedFile&, int, TAVReply& reply) {
  Answer(reply, kWrongParameter, "Wrong parameter");
}

constexpr struct TCompareMode {
  const char* mode;
  TCompare compare;
  int firstMacro;   // parameters that switch the macros of the two files on
  int secondMacro;  // 0: there is none, or it has no effect
} kCompareModes[] = {
    {"1", CompareTwoFiles, 12, 13},
    {"2", FindSecondFile, 9, 0},
    {"3", FindString, 11, 0},
    {"4", RefuseMode, 12, 0},
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
  const TCompareMode& mode = ModeNamed(request.GetParam(1, 1));
  const auto switchAt = [&](int param) { return param > 0 && tavDecodeBool(request.GetParam(param, 1)); };

  TNamedFile first(request, 2, switchAt(mode.firstMacro));
  if (!first.Exists()) return;
  mode.compare(request, first, switchAt(mode.secondMacro), reply);
}
