#include "checks/filetests.h"

#include <gtest/gtest.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <regex>

#include "tests/checks/replies.h"

// In the place of the system's, for what is linked in here.
int statfs(const char* path, struct statfs* info) noexcept {
  *info = {};
  info->f_bsize = 4096;
  info->f_blocks = 1ULL << 50;
  info->f_bfree = 20;
  info->f_bavail = 10;
  return access(path, F_OK);
}

namespace {

TEST(FileTests, AnswerInTheirForm) {
  const TTree tree;
  const std::string dir = tree.path, sub = tree.Add("sub/"), file = tree.Add("f.txt", "123456789", 1000000000);
  const std::string longer = tree.Add("sub/4096", std::string(4096, 'x')), empty = tree.Add("sub/empty");
  const std::tuple<THandler, std::string, std::string> rows[] = {
      {ProcessTest_UNC, "/\\\n", "200\n4611686018427387904\n 81920\n 40960\n\\d+\n"},
      {ProcessTest_UNC, dir + "none\n", "301\n"},
      {ProcessTest_UNC, "\\\n", "501\nPath not specified"},
      {ProcessTest_FolderSize, dir + "\n0\n", "200\n     9\n"},
      {ProcessTest_FolderSize, dir + "none\n", "301\nFolder/File doesn`t exist or access denied"},
      {ProcessTest_FolderSize, dir + "%newestfile%\n0\n\n\n\n\n\n1\n", "200\n     9\n"},
      {ProcessTest_FileExists, dir + "%oldestfile%*\n\n\n\n\n\n1\n",
       "200\n     9\n\\d{14}\n\\d{14}\n" + file + "\nmin\n\\d{8}\n"},
      {ProcessTest_FileExists, tree.Add("sub/young", "", time(nullptr) - 100) + "\n",
       "200\n     0\n\\d{14}\n\\d{14}\n.*/young\nmin\n1\n"},
      {ProcessTest_FileExists, sub + "link\n", "200\n     8\n(.*\n)*"},  // the link's own size
      {ProcessTest_FileExists, "\n", "301\nno such file or acess denied"},
      {ProcessTest_FileCRC, file + "\n", "200\n873187033\n"},  // 0x340BC6D9
      {ProcessTest_FileCRC, longer + "\n", "301\nRead error"},
      {ProcessTest_FileCRC, empty + "\n", "301\nRead error"},
      {ProcessTest_FileCRC, "/dev/zero\n", "301\nRead error"},
      {ProcessTest_FileCRC, "/proc/self/limits\n", "200\n *\\d+\n"},
      {ProcessTest_FileCRC, sub + "fifo\n", "301\nCannot open file"},
      {ProcessTest_FileCRC, "\n", "301\nFile is not specified"}};
  ASSERT_EQ(0, mkfifo((sub + "fifo").c_str(), 0600));
  ASSERT_EQ(0, symlink("../f.txt", (sub + "link").c_str()));
  for (const auto& [handler, parameters, expected] : rows) {
    const std::string reply = ReplyOf(handler, parameters);
    EXPECT_TRUE(std::regex_match(reply, std::regex(expected))) << parameters << reply;
  }
}

TEST(FolderSize, CountsTheFilesThatAreAskedFor) {
  const TTree tree;
  for (const char* folder : {"sub/", "sub/*/", "sub/*/x/", "sub/*/*/", "other/", "other/logs/", "other/logs/in/"})
    tree.Add(folder);
  const char* files[] = {"a.txt",       "sub/b.txt",       "sub/*/c.txt", "sub/*/x/c.txt",
                         "other/b.dat", "other/logs/in/l", "sub/*/*/d"};
  size_t size = 1;
  for (const char* file : files) tree.Add(file, std::string(std::exchange(size, size * 2), 'x'));
  ASSERT_EQ(0, symlink("other", (tree.path + "link").c_str()));
  // The folder named "*" counts in the place of the one that it lies in.
  const std::tuple<const char*, int, long long> rows[] = {
      {"", 0, 1},      {"link", 0, 16}, {"*.txt", 0, 1}, {"*.txt", 1, 15}, {"", 1, 125},     {"logs", 1, 32},
      {"logs", 0, -1}, {"a.txt", 0, 1}, {"none*", 0, 0}, {"none", 1, 0},   {"none/", 1, -1}, {"link/", 1, 48}};
  for (const auto& [path, recursive, total] : rows)
    EXPECT_EQ(total, GetFolderSize((tree.path + path).c_str(), recursive)) << path << " " << recursive;
}

}  // namespace
