#include "core/filemacros.h"

#include <gtest/gtest.h>

#include "tests/scratch.h"

namespace {

TEST(FileMacros, NameTheNewestAndTheOldest) {
  const TTree tree;
  const std::pair<const char*, time_t> entries[] = {{"a.log", 1000}, {"b.log", 5000000000}, {"C.log", -1000},
                                                    {"old/", 0},     {"old/none/", 0},      {"new/", 0},
                                                    {"new/z", 0},    {"old/", 500}};
  for (const auto& entry : entries) tree.Add(entry.first, "", entry.second);
  // The last but one finds nothing inside, so nothing is replaced.
  const std::pair<const char*, const char*> rows[] = {
      {"%newestfile%", "b.log"},
      {"%OldestFile%", "C.log"},
      {"%NEWESTFOLDER%/Out.txt", "new/Out.txt"},
      {"%oldestfolder%/%oldestfolder%/x", "old/none/x"},
      {"%newestfolder%/%newestfile%.gz", "new/z.gz"},
      {"%newestfolder%/%oldestfolder%", "%newestfolder%/%oldestfolder%"},
      {"%newestfolde%/a", "%newestfolde%/a"}};
  for (const auto& row : rows)
    EXPECT_EQ(tree.path + row.second, GetFileUsingSpecialMacros((tree.path + row.first).c_str()).CStr())
        << row.first;
  tree.Add("d.log/");
  EXPECT_EQ(tree.path + "b.log", GetFirstMatchedFile((tree.path + "[bd].log").c_str()).CStr());
  EXPECT_EQ(0, GetFirstMatchedFile((tree.path + "d*").c_str()).Length()) << "a folder is no file";
}

}  // namespace
