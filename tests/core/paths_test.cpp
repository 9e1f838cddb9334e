#include "core/paths.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

std::string Text(String s) {
  return s.CStr();
}

TEST(Paths, AreSplitAtTheLastSlash) {
  EXPECT_EQ("/a.b/", Text(ExtractFilePath("/a.b/c")));
  EXPECT_EQ("", Text(ExtractFileExt("/a.b/c")));
  EXPECT_EQ(".gz", Text(ExtractFileExt("/a/x.tar.gz")));
  EXPECT_EQ("/", Text(IncludeTrailingPathDelimiter("")));
  EXPECT_EQ("a/", Text(ExcludeTrailingPathDelimiter("a//")));
}

TEST(Paths, ExpandToAbsoluteOnes) {
  const std::string here = Text(GetCurrentDir());
  const std::pair<const char*, std::string> rows[] = {
      {"/a/./b", "/a/b"},   {"/a/b/../c", "/a/c"}, {"/a//b", "/a/b"},      {"/a/.hidden", "/a/.hidden"},
      {"/", "/"},           {"//", "/"},           {"~/x", "~/x"},         {"", ""},
      {"/a/b/", "/a/b"},    {"/a/b/..", "/a"},     {"/a/b/.", "/a/b"},     {"/a/.../b", "/a/.../b"},
      {"/../a", "/../a"},   {"//../a", "/a"},      {"/a/b/../../c", "/c"}, {"/a/b/c/../../d", "/a/d"},
      {"./a", here + "/a"}, {"/a/..x", "/..x"}};
  for (const auto& row : rows) EXPECT_EQ(row.second, Text(ExpandFileName(row.first))) << row.first;
}

}  // namespace
