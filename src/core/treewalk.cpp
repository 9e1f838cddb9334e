#include "core/treewalk.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "core/closers.h"
#include "core/trouble.h"

namespace {

// A folder whose subfolders are being entered.
struct TLevel {
  TFd fd;            // closed while the walk is far below
  dev_t device = 0;  // what it was when it was closed, to know it again
  ino_t inode = 0;
  size_t names = 0;  // where its waiting subfolders begin
  std::string path;  // from the level before
};

bool IsSubfolder(const TSearchRec& rec) {
  return (rec.Attr & AttrDirectory) && strcmp(rec.Name, ".") != 0 && strcmp(rec.Name, "..") != 0;
}

class TWalk {
 public:
  explicit TWalk(const TTreeVisitor& v) : visitor(v) {}

  TWalkEnd Run(const String& root) {
    bool going = true;
    {
      TSearchRec rec;
      TSearchGuard guard(rec);
      if (FindFirst(root, "*", AttrAnyFile, 0, rec) != 0) return rec.Trouble ? kWalkTrouble : kWalkNotListed;
      going = List(rec);
    }
    while (going && !levels.empty()) going = waiting.size() == levels.back().names ? Leave() : EnterNext();
    return going ? kWalkDone : kWalkTrouble;
  }

 private:
  // Each step is false when the walk can't go on.
  bool EnterNext() {
    const std::string name = TakeName();
    TSearchRec rec;
    TSearchGuard guard(rec);
    if (FindFirstAt(levels.back().fd.Get(), name.c_str(), "*", AttrAnyFile, 0, rec) != 0) return !rec.Trouble;
    return List(rec);
  }

  // Shows a folder to the visitor; when it has subfolders to be entered, it becomes the top level.
  bool List(TSearchRec& rec) {
    const size_t names = waiting.size();
    const int depth = static_cast<int>(levels.size());
    ShowEntries(rec, depth, names);
    if (rec.Trouble) return false;
    if (!visitor.folderEnd(depth)) waiting.resize(names);
    if (waiting.size() == names) return true;

    // The stream and its buffer go; a descriptor is enough to enter what waits.
    if (levels.size() - firstOpen >= kOpenLevels && !CloseOldest()) return false;
    TFd fd(fcntl(dirfd(rec.DirHandle), F_DUPFD_CLOEXEC, 0));
    FindClose(rec);
    if (!fd.IsOpen()) return false;
    levels.push_back({std::move(fd), 0, 0, names, rec.DirPath.CStr()});
    return true;
  }

  void ShowEntries(TSearchRec& rec, int depth, size_t names) {
    do {
      const TWalkStep step = visitor.entry(rec, depth);
      if (step == kWalkPast || !IsSubfolder(rec)) continue;
      if (step == kWalkOnlyInto) waiting.resize(names);
      waiting.append(rec.Name, strlen(rec.Name) + 1);
      if (step == kWalkOnlyInto) return;
    } while (FindNext(rec) == 0);
  }

  // Names lie one behind the other, each with its NUL, the top level's at the end.
  std::string TakeName() {
    waiting.pop_back();
    const size_t start = waiting.find_last_of('\0') + 1;  // npos + 1 is 0: the first name of all
    std::string name = waiting.substr(start);
    waiting.resize(start);
    return name;
  }

  bool CloseOldest() {
    TLevel& oldest = levels[firstOpen++];
    struct stat status;
    if (fstat(oldest.fd.Get(), &status) != 0) return false;
    oldest.device = status.st_dev;
    oldest.inode = status.st_ino;
    oldest.fd.Reset();
    return true;
  }

  // Goes back to the level above.  When that was closed, it is found again as "..", or by its name when this folder
  // has been moved elsewhere or locked up meanwhile.  What can't be reached any more either way adds nothing.
  bool Leave() {
    const TFd left = std::move(levels.back().fd);
    levels.pop_back();
    if (levels.empty() || levels.size() > firstOpen) return true;

    firstOpen = levels.size() - 1;
    if (!Reopen(OpenFolder(left.Get(), "..")) && !Reopen(OpenByName())) waiting.resize(levels.back().names);
    return !trouble;
  }

  TFd OpenFolder(int folder, const char* name) {
    TFd fd(Uninterrupted([&] { return openat(folder, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    trouble = trouble || (!fd.IsOpen() && OwnTrouble(errno));
    return fd;
  }

  // The folder that has the top level's name now, from the root down.
  TFd OpenByName() {
    TFd fd = OpenFolder(AT_FDCWD, levels[0].path.c_str());
    for (size_t i = 1; i < levels.size() && fd.IsOpen(); i++) fd = OpenFolder(fd.Get(), levels[i].path.c_str());
    return fd;
  }

  // Takes a descriptor for the top level's, if it is.
  bool Reopen(TFd fd) {
    TLevel& top = levels.back();
    struct stat status;
    if (!fd.IsOpen()) return false;
    trouble = trouble || fstat(fd.Get(), &status) != 0;
    if (trouble || status.st_dev != top.device || status.st_ino != top.inode) return false;
    top.fd = std::move(fd);
    return true;
  }

  static constexpr size_t kOpenLevels = kWalkDescriptors - 2;  // one for the folder being read, one to spare

  const TTreeVisitor& visitor;
  std::vector<TLevel> levels;
  size_t firstOpen = 0;  // the levels before it are closed
  std::string waiting;
  bool trouble = false;  // met on the way back
};

}  // namespace

TWalkEnd WalkTree(const String& root, const TTreeVisitor& visitor) {
  return TWalk(visitor).Run(root);
}
