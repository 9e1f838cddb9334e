#include "core/treewalk.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "core/closers.h"

namespace {

// A folder whose subfolders are being entered.
struct TLevel {
  TFd fd;            // closed while the walk is far below
  dev_t device = 0;  // what it was when it was closed, to know it again
  ino_t inode = 0;
  size_t names = 0;  // where its waiting subfolders begin
};

bool IsSubfolder(const TSearchRec& rec) {
  return (rec.Attr & AttrDirectory) && strcmp(rec.Name, ".") != 0 && strcmp(rec.Name, "..") != 0;
}

class TWalk {
 public:
  explicit TWalk(const TTreeVisitor& v) : visitor(v) {}

  bool Run(const String& root) {
    TSearchRec rec;
    TSearchGuard guard(rec);
    if (FindFirst(root, "*", AttrAnyFile, 0, rec) != 0) return false;
    List(rec);
    while (!levels.empty()) {
      if (waiting.size() == levels.back().names)
        Leave();
      else
        EnterNext();
    }
    return true;
  }

 private:
  void EnterNext() {
    const std::string name = TakeName();
    TSearchRec rec;
    TSearchGuard guard(rec);
    if (FindFirstAt(levels.back().fd.Get(), name.c_str(), "*", AttrAnyFile, 0, rec) == 0) List(rec);
  }

  // Shows a folder to the visitor; when it has subfolders to be entered, it becomes the top level.
  void List(TSearchRec& rec) {
    const size_t names = waiting.size();
    const int depth = static_cast<int>(levels.size());
    ShowEntries(rec, depth, names);
    if (!visitor.folderEnd(depth)) waiting.resize(names);
    if (waiting.size() == names) return FindClose(rec);

    // The stream and its buffer go; a descriptor is enough to enter what waits.
    TFd fd(fcntl(dirfd(rec.DirHandle), F_DUPFD_CLOEXEC, 0));
    FindClose(rec);
    if (!fd.IsOpen()) return waiting.resize(names);
    if (levels.size() - firstOpen >= kOpenLevels) CloseOldest();
    levels.push_back({std::move(fd), 0, 0, names});
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

  void CloseOldest() {
    TLevel& oldest = levels[firstOpen++];
    struct stat status;
    if (fstat(oldest.fd.Get(), &status) == 0) {
      oldest.device = status.st_dev;
      oldest.inode = status.st_ino;
    }
    oldest.fd.Reset();
  }

  // Goes back to the level above.  When that was closed, it is found again as "..", unless this folder has been
  // moved elsewhere meanwhile: then what waits up there can't be reached any more and adds nothing.
  void Leave() {
    const TFd left = std::move(levels.back().fd);
    levels.pop_back();
    if (levels.empty() || levels.size() > firstOpen) return;

    TLevel& above = levels.back();
    firstOpen = levels.size() - 1;
    above.fd = TFd(openat(left.Get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat status;
    if (above.fd.IsOpen() && fstat(above.fd.Get(), &status) == 0 && status.st_dev == above.device &&
        status.st_ino == above.inode)
      return;
    waiting.resize(above.names);
  }

  static constexpr size_t kOpenLevels = kWalkDescriptors - 2;  // one for the folder being read, one to spare

  const TTreeVisitor& visitor;
  std::vector<TLevel> levels;
  size_t firstOpen = 0;  // the levels before it are closed
  std::string waiting;
};

}  // namespace

bool WalkTree(const String& root, const TTreeVisitor& visitor) {
  return TWalk(visitor).Run(root);
}
