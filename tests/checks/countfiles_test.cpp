#include "checks/countfiles.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/checks/replies.h"

namespace fs = std::filesystem;

// Hidden folders and links are not entered.
TEST(CountFiles, CountsByMaskConditionAndDepth) {
  const TTree s;
  for (const char* folder : {"sub/deep", ".hid", "empty"}) fs::create_directories(s.path + folder);
  for (const char* f : {"a.log", ".h.log", "b.txt", "sub/c.log", "sub/deep/d.log", ".hid/e.log"}) s.Add(f, f);
  fs::create_symlink(s.path + "a.log", s.path + "link.log");
  fs::create_directory_symlink(s.path + "sub", s.path + "linked");
  while (time(nullptr) % 60 > 57) usleep(100000);  // the minute stays for a while
  fs::last_write_time(s.path + "a.log", fs::file_time_type::clock::now() - std::chrono::hours(2));

  const std::string none = "301\nFolder doesn`t exist or access denied", wrong = "501\nWrong parameter";
  const std::pair<std::string, std::string> rows[] = {
      {"\n*.log\n0\n0\n0\n", "200\n2\n"},  {"\n*\n0\n0\n\n", "200\n3\n"},
      {"\n*.log\n1\n0\n0\n", "200\n4\n"},  {"\n*\n0\n1\n60\n", "200\n1\n"},
      {"\na*\n0\n1\n119\n", "200\n1\n"},   {"\na*\n0\n1\n120\n", "200\n0\n"},
      {"\na*\n0\n2\n120\n", "200\n0\n"},   {"\na*\n0\n2\n121\n", "200\n1\n"},
      {"\n*\n1\n2\n60\n", "200\n4\n"},     {"\n*\n1\n3\n6\n", "200\n2\n"},
      {"\n*\n1\n4\n6\n", "200\n2\n"},      {"\n*\n1\n5\n0\n", "200\n4\n"},
      {"\ns*\n1\n5\n0\n", "200\n1\n"},     {"empty\nx\n0\n0\n0\n", "200\n0\n"},
      {"empty\nx\n1\n0\n0\n", "200\n0\n"}, {"none\n*\n0\n0\n0\n", none},
      {"none\n*\n1\n0\n0\n", none},        {"\n*\n0\n6\n0\n", wrong},
      {"\n*\n0\n-1\n0\n", wrong},          {"\n*\n0\n0\nx\n", wrong}};
  for (const auto& [request, reply] : rows)
    EXPECT_EQ(reply, ReplyOf(ProcessTest_CountFiles, s.path + request)) << request;
}
