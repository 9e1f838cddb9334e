#include "core/paths.h"

#include <gtest/gtest.h>

#include "tests/scratch.h"

namespace {

TEST(Paths, AreSplitAtTheLastSlash) {
  EXPECT_EQ("/a.b/", Std(ExtractFilePath("/a.b/c")));
  EXPECT_EQ("", Std(ExtractFileExt("/a.b/c")));
  EXPECT_EQ(".gz", Std(ExtractFileExt("/a/x.tar.gz")));
  EXPECT_EQ("/", Std(IncludeTrailingPathDelimiter("")));
  EXPECT_EQ("a/", Std(ExcludeTrailingPathDelimiter("a//")));
}

TEST(Paths, ExpandToAbsoluteOnes) {
  const std::string here = Std(GetCurrentDir());
  const std::pair<const char*, std::string> rows[] = {
      {"/a/./b", "/a/b"},   {"/a/b/../c", "/a/c"}, {"/a//b", "/a/b"},      {"/a/.hidden", "/a/.hidden"},
      {"/", "/"},           {"//", "/"},           {"~/x", "~/x"},         {"", ""},
      {"/a/b/", "/a/b"},    {"/a/b/..", "/a"},     {"/a/b/.", "/a/b"},     {"/a/.../b", "/a/.../b"},
      {"/../a", "/../a"},   {"//../a", "/a"},      {"/a/b/../../c", "/c"}, {"/a/b/c/../../d", "/a/d"},
      {"./a", here + "/a"}, {"/a/..x", "/..x"}};
  for (const auto& row : rows) EXPECT_EQ(row.second, Std(ExpandFileName(row.first))) << row.first;
}

}  // namespace
