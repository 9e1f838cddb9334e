#include "core/tempfile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/core/own_temp_folder.h"

namespace {

using TempFile = OwnTempFolder;

std::string Unique(int number) {
  {
    TLock lock(fidmutex);
    filenumber = number;
  }
  char name[512];
  return gettempfilename(name, sizeof(name), nullptr) ? name : "";
}

TEST_F(TempFile, NumbersSkipWhatExistsAndStartAgain) {
  const std::string prefix = In("tmp-" + std::to_string(GetUniqueThreadID()) + "-");
  const auto file = [&prefix](int n) { return prefix + std::to_string(n); };
  EXPECT_EQ(file(1000000), Unique(999999));
  for (int n = 1; n <= 2000; n++) CreatePrivateFile(file(n).c_str(), 0600, 0);
  EXPECT_EQ("", Unique(1000000));
  EXPECT_EQ(file(2001), Unique(1));
  for (int n = 1; n <= 2000; n++) unlink(file(n).c_str());
}

TEST_F(TempFile, NamesNeedRoom) {
  char name[512] = "kept";
  EXPECT_EQ(0, gettempfilename(name, 15, "x"));
  EXPECT_STREQ("kept", name);
  const int dirSize = static_cast<int>(In("").size());
  EXPECT_EQ(0, gettempfilename(name, dirSize + 15, "x"));
  EXPECT_STREQ("", name);
  EXPECT_EQ(1, gettempfilename(name, dirSize + 16, "0123456789abcdefgh"));
  EXPECT_EQ(In("0123456789abcde"), name);
}

TEST_F(TempFile, PrivateFilesAreNeverWhatWasPlanted) {
  const std::string path = In("guessable"), victim = In("victim");
  ASSERT_EQ(0, symlink(victim.c_str(), path.c_str()));
  EXPECT_FALSE(OpenPrivateFile(path.c_str()).IsOpen());
  EXPECT_TRUE(CreatePrivateFile(path.c_str(), 0775, O_WRONLY).IsOpen());
  struct stat made;
  EXPECT_TRUE(lstat(path.c_str(), &made) == 0 && made.st_mode == (S_IFREG | 0775)) << made.st_mode;
  EXPECT_TRUE(OpenPrivateFile(path.c_str()).IsOpen());
  EXPECT_TRUE(geteuid() != 0 ||
              (chown(path.c_str(), 65534, 65534) == 0 && !OpenPrivateFile(path.c_str()).IsOpen()));
  unlink(path.c_str());
  EXPECT_NE(0, unlink(victim.c_str())) << "the link was followed";
}

}  // namespace
