#include "checks/infolists.h"

#include <string.h>

#include "checks/filetests.h"
#include "config/settings.h"
#include "core/paths.h"
#include "protocol/results.h"
#include "protocol/tav_const.h"

namespace {

// What the request asks for.
struct TListing {
  explicit TListing(const BVRequest& request);

  String folder;  // ends in "/"
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
  if (!IsPathDelimiter(folder, folder.Length()) && !DirectoryExists(folder.CStr()))
    folder = ExtractFilePath(folder);
  return IncludeTrailingPathDelimiter(folder);
}

TListing::TListing(const BVRequest& request) {
  const auto wanted = [&request](int i) { return tavDecodeBool(request.GetParam(i, 1)); };
  folder = FolderToList(request.GetParam(1, 1));
  mask = request.GetParam(2, 1);
  if (mask.Length() == 0) mask = "*";
  folders = wanted(3);
  files = wanted(4);
  attr = AttrAnyFile & ~(wanted(5) ? 0 : AttrHidden) & ~(wanted(6) ? 0 : AttrSystem);
  sizes = wanted(7);
  ctimes = wanted(8);
  mtimes = wanted(9);
}

// Adds either the directories or everything else that the search finds; returns how many.
int AddEntries(TAVReply& list, const TListing& listing, bool directories) {
  const unsigned needs = kNeedAccess | (listing.sizes || listing.mtimes ? kNeedStat : 0);
  const String mask = directories ? String("*") : listing.mask;
  int count = 0;
  TSearchRec rec;
  TSearchGuard guard(rec);
  for (int found = FindFirst(listing.folder, mask, listing.attr, 0, rec); found == 0; found = FindNext(rec)) {
    if (((rec.Attr & AttrDirectory) != 0) != directories || strcmp(rec.Name, ".") == 0) continue;
    if (!CompleteRecord(rec, needs)) continue;
    AddFileStr(list, listing.folder, rec, listing.sizes, listing.ctimes, listing.mtimes);
    count++;
  }
  return count;
}

bool Allowed(const TTAVSettings& settings) {
  return settings.foldersize || settings.countfiles || settings.fileexists || settings.filecrc ||
         settings.comparefiles || settings.textlog;
}

}  // namespace

void AddFileStr(TAVReply& list, const String& dir, const TSearchRec& entry, int withSize, int withCTime,
                int withMTime) {
  list.AddStringParam(entry.Name, 0);
  list.AddIntParam(entry.Attr);
  if (withSize) list.AddIntParam(entry.Size);
  if (withCTime) {
    long long size = 0;
    long ctime = 0, mtime = 0;
    String path = dir + entry.Name;
    if (!GetFileInfo(path.CStr(), size, ctime, mtime)) ctime = 0;
    list.AddTimeParam(time_t{ctime});
  }
  if (withMTime) list.AddTimeParam(time_t{entry.Time});
}

void ProcessInfo_GetFileList(const BVRequest& request, TAVReply& reply) {
  if (!Allowed(*SettingsInForce())) return Answer(reply, kSwitchedOff, "test is not allowed");

  const TListing listing(request);
  TAVReply list;
  int count = 0;
  if (listing.folders) count += AddEntries(list, listing, true);
  if (listing.files) count += AddEntries(list, listing, false);

  reply.SetResult(kDone);
  reply.AddStringParam(listing.folder, 0);
  reply.AddIntParam(count);
  reply.AddIntParam(2 + listing.sizes + listing.ctimes + listing.mtimes);
  reply.AddLines(list);
}
