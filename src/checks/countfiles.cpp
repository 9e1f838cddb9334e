#include "checks/countfiles.h"

#include <string.h>
#include <time.h>

#include "core/filemacros.h"
#include "core/filesearch.h"
#include "core/treewalk.h"
#include "protocol/parameters.h"
#include "protocol/readparam.h"
#include "protocol/results.h"

namespace {

// What files are counted by.
struct TCondition {
  TCountFilesMode mode;
  long long limit;
  long sinceMinute;  // the current minute minus the limit
};

bool Dots(const TSearchRec& entry) {
  return strcmp(entry.Name, ".") == 0 || strcmp(entry.Name, "..") == 0;
}

bool Counts(TSearchRec& entry, const TCondition& condition) {
  if (entry.Attr & AttrDirectory) return condition.mode == SubFolders && !Dots(entry);
  if (condition.mode == SubFolders) return false;
  if (condition.mode == AllFiles) return true;
  if (!CompleteRecord(entry, kNeedStat)) return false;

  const long minute = sec2min(static_cast<long>(entry.Time));
  if (condition.mode == OlderThan) return minute < condition.sinceMinute;
  if (condition.mode == NewerThan) return minute > condition.sinceMinute;
  if (condition.mode == BiggerThan) return entry.Size > condition.limit;
  return entry.Size < condition.limit;
}

// The folder that the walk is reading: it is read to its end before the next one begins.
struct TFolderCount {
  int count = 0;
  bool matched = false;  // an entry matches the mask, counted or not
  bool listed = false;   // a search for folders would return an entry
};

}  // namespace

long sec2min(long seconds) {
  return seconds / 60;
}

long now_min() {
  return sec2min(time(nullptr));
}

int CountFiles(const String& folder, const String& mask, int subfolders, TCountFilesMode mode, int limit) {
  const TCondition condition = {mode, limit, now_min() - limit};
  String wildcard = mask;
  TFolderCount here;
  int total = 0;
  bool rootListed = false;

  TTreeVisitor visitor;
  visitor.entry = [&](TSearchRec& entry, int) {
    if (NameMatches(wildcard, entry.Name)) {
      here.matched = true;
      here.count += Counts(entry, condition);
    }
    const bool enter = subfolders && (entry.Attr & AttrDirectory) && !Dots(entry);
    if (here.listed && !enter) return kWalkPast;  // spares a system call for each plain file

    const bool listed = SearchReturns(entry, AttrDirectory);
    here.listed = here.listed || listed;
    return enter && listed ? kWalkInto : kWalkPast;
  };
  visitor.folderEnd = [&](int depth) {
    const bool good = here.listed || (!subfolders && here.matched);
    if (good) total += here.count;
    if (depth == 0) rootListed = good;
    here = TFolderCount();
    return good;
  };
  if (WalkTree(folder, visitor) != kWalkDone || !rootListed) return -1;
  return total;
}

void ProcessTest_CountFiles(const BVRequest& request, TAVReply& reply) {
  namespace at = params::count_files;
  const int mode = ReadLeadingNumber(request, at::kMode);
  int limit = 0;
  if (mode < AllFiles || mode > SubFolders || !ReadNumber(request, at::kLimit, limit))
    return Answer(reply, kWrongParameter, "Wrong parameter");

  String folder = ReadText(request, at::kFolder);
  int count = -1;
  if (!ReadFlag(request, at::kMacros) || ResolveFileMacros(folder))
    count = CountFiles(folder, ReadText(request, at::kMask), ReadFlag(request, at::kSubfolders),
                       static_cast<TCountFilesMode>(mode), limit);
  if (count < 0) return Answer(reply, kNotExamined, "Folder doesn`t exist or access denied");
  reply.SetResult(kDone);
  reply.AddIntParam(count);
}
