#include "checks/infolists.h"

#include <string.h>

#include "checks/filetests.h"
#include "core/paths.h"
#include "core/trouble.h"
#include "protocol/parameters.h"
#include "protocol/readparam.h"
#include "protocol/results.h"

namespace {

// What the request asks for.
struct TListing {
  explicit TListing(const BVRequest& request);

  String folder;  // ends in "/"; empty when trouble of the agent's own leaves open which one it is
  String mask;    // for the files; folders are listed whatever their names
  int folders;
  int files;
  int attr;
  int sizes;
  int ctimes;
  int mtimes;
};

String FolderToList(String folder) {
  if (folder.Length() == 0) return "/";
  if (!IsPathDelimiter(folder, folder.Length()) && !DirectoryExists(folder.CStr())) {
    if (OwnTrouble(errno)) return String();
    folder = ExtractFilePath(folder);
  }
  return IncludeTrailingPathDelimiter(folder);
}

TListing::TListing(const BVRequest& request) {
  namespace at = params::files_list;
  const auto wanted = [&request](int line) { return ReadFlag(request, line); };
  folder = FolderToList(ReadText(request, at::kFolder));
  mask = ReadText(request, at::kMask);
  if (mask.Length() == 0) mask = "*";
  folders = wanted(at::kFolders);
  files = wanted(at::kFiles);
  attr = AttrAnyFile & ~(wanted(at::kHidden) ? 0 : AttrHidden) & ~(wanted(at::kSystem) ? 0 : AttrSystem);
  sizes = wanted(at::kSizes);
  ctimes = wanted(at::kStatusTimes);
  mtimes = wanted(at::kChangeTimes);
}

// Adds either the directories or everything else that the search finds, and to `count` how many.  False in trouble
// that has or may have left some out.
bool AddEntries(TAVReply& list, const TListing& listing, bool directories, int& count) {
  const unsigned needs = kNeedAccess | (listing.sizes || listing.mtimes ? kNeedStat : 0);
  const String mask = directories ? String("*") : listing.mask;
  TSearchRec rec;
  TSearchGuard guard(rec);
  for (int found = FindFirst(listing.folder, mask, listing.attr, 0, rec); found == 0; found = FindNext(rec)) {
    if (((rec.Attr & AttrDirectory) != 0) != directories || strcmp(rec.Name, ".") == 0) continue;
    if (!CompleteRecord(rec, needs)) continue;
    if (!AddFileStr(list, listing.folder, rec, listing.sizes, listing.ctimes, listing.mtimes)) return false;
    count++;
  }
  return rec.Trouble == 0;
}

}  // namespace

bool AddFileStr(TAVReply& list, const String& dir, const TSearchRec& entry, int withSize, int withCTime,
                int withMTime) {
  list.AddStringParam(entry.Name, 0);
  list.AddIntParam(entry.Attr);
  if (withSize) list.AddIntParam(entry.Size);
  if (withCTime) {
    long long size = 0;
    long ctime = 0, mtime = 0;
    String path = dir + entry.Name;
    if (!GetFileInfo(path.CStr(), size, ctime, mtime)) {
      if (OwnTrouble(errno)) return false;
      ctime = 0;
    }
    list.AddTimeParam(time_t{ctime});
  }
  if (withMTime) list.AddTimeParam(time_t{entry.Time});
  return true;
}

void ProcessInfo_GetFileList(const BVRequest& request, TAVReply& reply) {
  const TListing listing(request);
  TAVReply list;
  int count = 0;
  const bool listed = listing.folder.Length() > 0 && (!listing.folders || AddEntries(list, listing, true, count)) &&
                      (!listing.files || AddEntries(list, listing, false, count));
  if (!listed) return Answer(reply, kNotExamined, "Folder doesn`t exist or access denied");

  reply.SetResult(kDone);
  reply.AddStringParam(listing.folder, 0);
  reply.AddIntParam(count);
  reply.AddIntParam(2 + listing.sizes + listing.ctimes + listing.mtimes);
  reply.AddLines(list);
}
