#include "checks/filetests.h"

#include <gtest/gtest.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "tests/checks/replies.h"

// In the place of the system's, for what is linked in here.
int statfs(const char*, struct statfs* info) noexcept {
  *info = {};
  info->f_bsize = 4096;
  info->f_blocks = 1ULL << 50;
  info->f_bfree = 20;
  info->f_bavail = 10;
  return 0;
}

namespace {

TEST(FileTests, TellFreeAndAvailableSpaceApart) {
  long long total = 0, free = 0, avail = 0;
  ASSERT_TRUE(GetUNCDriveInfo("/", total, free, avail));
  EXPECT_EQ("4611686018427387904 81920 40960",
            std::to_string(total) + " " + std::to_string(free) + " " + std::to_string(avail));
}

TEST(FolderSize, CountsTheFilesThatAreAskedFor) {
  const TTree tree;
  for (const char* folder : {"sub/", "sub/*/", "sub/*/x/", "other/", "other/logs/", "other/logs/in/"})
    tree.Add(folder);
  const char* files[] = {"a.txt", "sub/b.txt", "sub/*/c.txt", "sub/*/x/c.txt", "other/b.dat", "other/logs/in/l"};
  size_t size = 1;
  for (const char* file : files) tree.Add(file, std::string(std::exchange(size, size * 2), 'x'));
  ASSERT_EQ(0, symlink("other", (tree.path + "link").c_str()));
  // The folder named "*" counts in the place of the one that it lies in.
  const std::tuple<const char*, int, long long> rows[] = {
      {"", 0, 1},      {"link", 0, 16}, {"*.txt", 0, 1}, {"*.txt", 1, 15}, {"", 1, 61},      {"logs", 1, 32},
      {"logs", 0, -1}, {"a.txt", 0, 1}, {"none*", 0, 0}, {"none", 1, 0},   {"none/", 1, -1}, {"link/", 1, 48}};
  for (const auto& [path, recursive, total] : rows)
    EXPECT_EQ(total, GetFolderSize((tree.path + path).c_str(), recursive)) << path << " " << recursive;
}

}  // namespace
