#include "checks/filecompare.h"

#include <gtest/gtest.h>

#include "tests/checks/replies.h"

// A file that begins another equals it; a text that is not found answers as a read error; sizes are not asked when
// the times differ.
TEST(FileCompare, AnswersEveryMode) {
  const TTree s;
  const std::string a = s.Add("abc", "abc\n"), more = s.Add("more", "abc\ndef"), x = s.Add("abX", "abX\n");
  const std::string block(262144, 'x'), limit = s.Add("8M", ""), above = s.Add("8M+", "");
  for (const std::string& f : {a, more}) std::filesystem::last_write_time(f, {});
  std::filesystem::resize_file(limit, 8388608);
  std::filesystem::resize_file(above, 8388609);
  const std::string gone = "301\nFile doesn`t exist", io = "301\nI/O Error", yes = "200\n1\n", no = "200\n0\n";
  const std::string macro = s.path + "%OldestFile%\n", wrong = "501\nWrong parameter";
  const std::pair<std::string, std::string> rows[] = {
      {"1\n" + a + "\n" + more + "\n0\n0\n1\n", yes},
      {"1\n" + s.Add("b", block) + "\n" + s.Add("b+", block + "y") + "\n0\n0\n1\n", yes},
      {"1\n" + a + "\n" + x + "\n0\n0\n1\n", no},
      {"1\n" + a + "\n" + x + "\n0\n1\n0\n", yes},
      {"1\n" + a + "\n" + x + "\n1\n1\n0\n", no},
      {"1\n" + macro + macro + "1\n1\n1\n\n\n\n\n\n1\n1\n", yes},
      {"1\n" + a + "\n" + more + "\n1\n1\n0\n", no},
      {"1\n" + a + "\n" + s.path + "none\n", gone},
      {"1\n" + a + "\n" + s.path + "\n", gone},
      {"2\n" + a + "\n" + s.Add("empty") + "\n", yes},
      {"3\n" + s.Add("words", "one two2 two") + "\ntwo\n1\n1\n", yes},
      {"2\n" + more + "\n" + a + "\n", yes},
      {"2\n" + x + "\n" + a + "\n", io},
      {"2\n" + limit + "\n" + limit + "\n", yes},
      {"2\n" + limit + "\n" + above + "\n", "301\nThe size of the second file cannot exceed 8Mb"},
      {"2\n" + a + "\n" + macro + "\n\n\n\n\n1\n1\n", gone},
      {"3\n" + more + "\nEF\n0\n0\n", yes},
      {"3\n" + more + "\nEF\n1\n0\n", io},
      {"3\n" + more + "\nef\n0\n1\n", io},
      {"4\n" + a + "\n", wrong},
      {"9\n" + s.path + "\n", gone}};
  for (const auto& [request, reply] : rows) EXPECT_EQ(reply, ReplyOf(ProcessTest_FileCompare, request)) << request;
  EXPECT_EQ(-1, CompareFiles(a.c_str(), s.path.c_str()));  // a folder opens and can't be read
}
