#include "checks/infolists.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>

#include "tests/checks/replies.h"

namespace {

TEST(FilesList, ListsWhatIsAskedFor) {
  const TTree tree;
  for (const char* name : {"sub/", "sub/.h", "sub/.d/"}) tree.Add(name);
  tree.Add("sub/f", "123", 1);
  ASSERT_EQ(0, mkfifo((tree.path + "sub/pipe").c_str(), 0600) + symlink("f", (tree.path + "sub/link").c_str()));
  const std::string sub = tree.path + "sub/", head = "200\n" + sub + "\n";
  setenv("TZ", "UTC", 1);
  const std::string now = std::to_string(1900 + gmtime(std::array{time(nullptr)}.data())->tm_year);
  const std::string dated = ReplyOf(ProcessInfo_GetFileList, sub + "\n\n0\n1\n0\n0\n0\n1\n0\n");
  EXPECT_EQ(now, dated.substr(dated.size() - 11, 4)) << "changed now, whatever its content's time: " << dated;
  const std::pair<std::string, std::string> rows[] = {
      {sub + "\n\n0\n1\n0\n0\n1\n0\n1\n", head + "1\n4\nf\n0\n     3\n01011970000001\n"},
      {sub + "*.log\n\n0\n1\n0\n1\n", head},
      {tree.path + "sub\n?*\n1\n0\n0\n", head + "1\n2\n..\n16\n"},
      {sub + "\n.h\n0\n1\n1\n", head + "1\n2\n.h\n2\n"},
      {sub + "\npipe\n0\n1\n0\n1\n", head + "1\n2\npipe\n4\n"},
      {"\n\n1\n", "200\n/\n"},
      {tree.path + "none/\n\n1\n1\n", "200\n" + tree.path + "none/\n0\n2\n"}};
  for (const auto& row : rows)
    EXPECT_EQ(row.second, ReplyOf(ProcessInfo_GetFileList, row.first).substr(0, row.second.size())) << row.first;
}

}  // namespace
