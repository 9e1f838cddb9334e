#include "core/filesearch.h"

#include <gtest/gtest.h>

#include <map>

#include "core/treewalk.h"
#include "tests/scratch.h"

namespace {

using Names = std::map<std::string, int>;

// Name and attributes of all that a search returns.
Names Found(const std::string& pathAndMask, int attr) {
  Names names;
  TSearchRec rec;
  const TSearchGuard guard(rec);
  for (int found = FindFirst(pathAndMask.c_str(), attr, rec); found == 0; found = FindNext(rec))
    names[rec.Name] = rec.Attr;
  return names;
}

TEST(FileSearch, ReturnsWhatHasNoBitThatWasNotAskedFor) {
  const TTree tree;
  const std::string& dir = tree.path;
  const std::string longest(255, 'n');
  for (const char* name : {"y.txt", ".h.txt", "d.txt/", longest.c_str()}) tree.Add(name);
  ASSERT_EQ(0, mkfifo((dir + "p").c_str(), 0600) + chmod(tree.Add("r").c_str(), 0400));
  ASSERT_EQ(0, symlink("y.txt", (dir + "x.txt").c_str()) + symlink("d.txt", (dir + "l").c_str()));
  const int unwritable = access((dir + "r").c_str(), W_OK) == 0 ? 0 : AttrReadOnly;  // root may write it

  EXPECT_EQ((Names{{"y.txt", 0}, {".h.txt", AttrHidden}, {"d.txt", AttrDirectory}}), Found(dir + "*.txt", 63));
  EXPECT_EQ((Names{{"p", AttrSystem}, {"r", unwritable}, {longest, 0}}), Found(dir + "[plrn]*", 127))
      << "a link by no search";
  EXPECT_EQ((Names{{".", 16}, {"..", 16}, {"d.txt", 16}, {"y.txt", 0}}), Found(dir + "*[.d]*", 16));
  EXPECT_EQ(unwritable == 0, Found(dir + "r", 62).size() == 1);
  TSearchRec rec;
  EXPECT_EQ(ENOENT, FindFirst((dir + "none/*").c_str(), 63, rec));
  EXPECT_TRUE(FindFirst((dir + "*.none").c_str(), 63, rec) == -1);
  EXPECT_TRUE(!rec.DirHandle);
}

TEST(TreeWalk, GoesOnAboveAFolderThatIsMovedAway) {
  const TTree tree;
  std::string folder = tree.path, fifth;
  for (int level = 1; level <= 2 * kWalkDescriptors; level++) {
    for (const char* name : {"a", "b", "c", "x", "y", "z"}) std::filesystem::create_directory(folder + name);
    std::filesystem::create_directory(folder += "l/");
    if (level == 5) fifth = folder;
  }
  int folders = 0;
  const TTreeVisitor visitor = {[](TSearchRec&, int) { return kWalkInto; },
                                [&](int depth) {
                                  if (depth == 2 * kWalkDescriptors)
                                    rename(fifth.c_str(), (tree.path + "m").c_str());
                                  return ++folders > 0;
                                }};
  EXPECT_EQ(kWalkDone, WalkTree(tree.path.c_str(), visitor));
  EXPECT_EQ(1 + 2 * kWalkDescriptors * 7, folders);
}

}  // namespace
