#include "checks/filecompare.h"

#include <string.h>

#include <algorithm>
#include <memory>

#include "checks/textsearch.h"
#include "config/settings.h"
#include "core/filemacros.h"
#include "core/inputfile.h"
#include "core/paths.h"
#include "protocol/results.h"
#include "protocol/tav_const.h"

namespace {

constexpr size_t kBlock = 256 * 1024;  // bytes a read, of each file

// What a mode does with the files once the first one is known to exist; leaving the reply alone answers that a file
// does not exist.
using TCompare = void (*)(const BVRequest& request, String& first, int secondMacro, TAVReply& reply);

String ResolvedParam(const BVRequest& request, int param, int macro) {
  const String name = request.GetParam(param, 1);
  return macro ? GetFileUsingSpecialMacros(name) : name;
}

void AnswerOutcome(TAVReply& reply, long long outcome) {
  if (outcome < 0) return Answer(reply, kNotExamined, "I/O Error");
  reply.SetResult(kDone);
  reply.AddBoolParam(outcome > 0);
}

void CompareTwoFiles(const BVRequest& request, String& first, int secondMacro, TAVReply& reply) {
  String second = ResolvedParam(request, 3, secondMacro);
  if (!FileExists(second.CStr())) return;

  const int times = tavDecodeBool(request.GetParam(4, 1));
  const int sizes = tavDecodeBool(request.GetParam(5, 1));
  const int contents = tavDecodeBool(request.GetParam(6, 1));
  int equal = 1;
  if (times && FileAge(first.CStr()) != FileAge(second.CStr()))
    equal = 0;
  else if (sizes)
    equal = FileSize(first.CStr()) == FileSize(second.CStr());
  if (equal && contents) equal = CompareFiles(first.CStr(), second.CStr());
  AnswerOutcome(reply, equal);
}

void FindSecondFile(const BVRequest& request, String& first, int, TAVReply& reply) {
  String second = request.GetParam(3, 1);
  if (!FileExists(second.CStr())) return;
  if (FileSize(second.CStr()) > kMaxPatternFile)
    return Answer(reply, kNotExamined, "The size of the second file cannot exceed 8Mb");
  AnswerOutcome(reply, FindFileInFile(first.CStr(), second.CStr()));
}

void FindString(const BVRequest& request, String& first, int, TAVReply& reply) {
  String text = request.GetParam(3, 1);
  const int caseSensitive = tavDecodeBool(request.GetParam(4, 1));
  const int wholeWord = tavDecodeBool(request.GetParam(5, 1));
  AnswerOutcome(reply, FindStrInFile(first.CStr(), text, caseSensitive, wholeWord));
}

void RefuseMode(const BVRequest&, String&, int, TAVReply& reply) {
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
  if (!SettingsInForce()->comparefiles) return Answer(reply, kSwitchedOff, "test is not allowed");

  Answer(reply, kNotExamined, "File doesn`t exist");
  const TCompareMode& mode = ModeNamed(request.GetParam(1, 1));
  const auto switchAt = [&](int param) { return param > 0 && tavDecodeBool(request.GetParam(param, 1)); };

  String first = ResolvedParam(request, 2, switchAt(mode.firstMacro));
  if (!FileExists(first.CStr())) return;
  mode.compare(request, first, switchAt(mode.secondMacro), reply);
}
