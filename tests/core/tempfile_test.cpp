#include "core/tempfile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <thread>
#include <vector>

#include "core/tempregister.h"
#include "tests/core/own_temp_folder.h"

namespace fs = std::filesystem;
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
  close(open(victim.c_str(), O_WRONLY | O_CREAT, 0600));
  ASSERT_EQ(0, symlink(victim.c_str(), path.c_str()));
  EXPECT_FALSE(OpenPrivateFile(path.c_str()).IsOpen());
  EXPECT_TRUE(CreatePrivateFile(path.c_str(), 0775, O_WRONLY).IsOpen());
  struct stat made;
  ASSERT_TRUE(lstat(path.c_str(), &made) == 0) << made.st_mode;
  EXPECT_TRUE(made.st_mode == (S_IFREG | 0775)) << made.st_mode;
  EXPECT_TRUE(OpenPrivateFile(path.c_str()).IsOpen());
  EXPECT_TRUE(geteuid() != 0 ||
              (chown(path.c_str(), 65534, 65534) == 0 && !OpenPrivateFile(path.c_str()).IsOpen()));
  struct stat spared;
  ASSERT_TRUE(lstat(victim.c_str(), &spared) == 0) << "the link was followed";
  EXPECT_TRUE(spared.st_mode == (S_IFREG | 0600)) << "the link was followed";

  // Somebody plants on and on: between the removal and the making, too.
  std::atomic<bool> done{false};
  std::thread planter([&] {
    while (!done) (void)!link(victim.c_str(), path.c_str());
  });
  for (int i = 0; i < 20000; i++) {
    const TFd file = CreatePrivateFile(path.c_str(), 0600, O_WRONLY);
    EXPECT_TRUE(!file.IsOpen() || (fstat(file.Get(), &made) == 0 && made.st_ino != spared.st_ino)) << i;
    if (HasFailure()) break;
  }
  done = true;
  planter.join();
  unlink(path.c_str());
  unlink(victim.c_str());
}

TEST_F(TempFile, LieWhereTheSettingOrTheEnvironmentSays) {
  SetTempDirectory(nullptr);
  char name[512];
  unsetenv("TMPDIR");
  for (const char* variable : {"TMP", "TMPDIR"}) {
    setenv(variable, In(variable).c_str(), 1);
    EXPECT_EQ(1, gettempfilename(name, sizeof(name), "x"));
    EXPECT_EQ(In(variable) + "/x", name);
  }
  unsetenv("TMP");
  unsetenv("TMPDIR");
}

TEST_F(TempFile, FoldersThatOthersMayWriteGetOneOfOurOwn) {
  const std::string own = In("tav-" + std::to_string(geteuid()));
  const auto used = [] {
    char name[512];
    return gettempfilename(name, sizeof(name), "x") ? std::string(name, strlen(name) - 2) : "";
  };
  EXPECT_EQ(folder, used());
  for (const mode_t mode : {01777, 0720, 0702}) {
    ASSERT_EQ(0, chmod(folder, mode));
    for (const char* claim : {"is made", "is there"}) EXPECT_EQ(own, used()) << mode << " " << claim;
    EXPECT_EQ(0700, int(fs::status(own).permissions())) << mode;
    EXPECT_EQ(0, rmdir(own.c_str())) << "as one who cleans up does";
  }
  const std::string victim = In("victim");
  const std::function<int()> plants[] = {
      [&] { return mkdir(victim.c_str(), 0700) + symlink(victim.c_str(), own.c_str()); },
      [&] { return rmdir(victim.c_str()) + unlink(own.c_str()) + mkdir(own.c_str(), 0750); },
      [&] { return chmod(own.c_str(), 0700) + (geteuid() == 0 ? chown(own.c_str(), 65534, 65534) : 0); },
  };
  for (const auto& plant : plants) {
    EXPECT_EQ(0, plant());
    if (geteuid() != 0 && &plant == &plants[2]) break;  // only root can give a folder away
    const std::string other = used();
    EXPECT_TRUE(other.size() == own.size() + 7) << other;
    EXPECT_TRUE(other.rfind(own + "-", 0) == 0) << other;
    EXPECT_EQ(other, used());
    EXPECT_EQ(0, rmdir(other.c_str()));
  }
  rmdir(own.c_str());

  if (geteuid() != 0) return;
  ASSERT_TRUE(chmod(folder, 0755) == 0);
  ASSERT_TRUE(chown(folder, 65533, 65533) == 0);
  EXPECT_EQ(own, used()) << "its owner may write";
  rmdir(own.c_str());
  ASSERT_EQ(0, seteuid(65534));
  EXPECT_FALSE(CreatePrivateFile((used() + "/x").c_str(), 0600, O_WRONLY).IsOpen());
  ASSERT_EQ(0, seteuid(0));
}

TEST_F(TempFile, RegisteredOnesDoNotOutliveTheProcess) {
  const auto make = [](const char* path) { return CreatePrivateFile(path, 0600, O_WRONLY).IsOpen(); };
  std::vector<std::string> paths;
  for (int n = 0; n < 40; n++) {
    paths.push_back(In(std::string(static_cast<size_t>(n % 4 * 80), 'x') + std::to_string(n)));
    EXPECT_TRUE(RegisterTempFile(paths[n].c_str())) << n;
    EXPECT_TRUE(n == 7 || make(paths[n].c_str())) << n;
    if (n % 3 == 0) ForgetTempFile(paths[n].c_str());
  }
  ASSERT_EQ(0, mkdir(In("kept").c_str(), 0700));
  ASSERT_TRUE(mkdir(In("gone").c_str(), 0700) == 0);
  ASSERT_TRUE(RegisterTempFolder(In("gone").c_str()));
  ASSERT_TRUE(RegisterTempFolder(In("kept").c_str()));
  ASSERT_TRUE(RegisterTempFile(In("kept/file").c_str()));
  ASSERT_TRUE(make(In("kept/file").c_str()));
  std::thread late([&] { usleep(5000), make(paths[7].c_str()); });  // as a child that has just been started does
  RemoveTempFiles(paths[1].c_str(), In("kept/file").c_str());
  late.join();
  for (int n = 0; n < 40; n++) EXPECT_EQ(n == 1 || n % 3 == 0, unlink(paths[n].c_str()) == 0) << n;
  EXPECT_FALSE(RegisterTempFile(In("late").c_str())) << "the end is near";
  for (const std::string& path : paths) ForgetTempFile(path.c_str());
  EXPECT_TRUE(unlink(In("kept/file").c_str()) == 0);
  EXPECT_TRUE(rmdir(In("kept").c_str()) == 0);
  EXPECT_NE(0, rmdir(In("gone").c_str()));
  for (const char* path : {"kept", "gone", "kept/file"}) ForgetTempFile(In(path).c_str());

  int waits = 0;
  for (TTempFile file; waits < 200; waits++, usleep(10000)) {
    snprintf(file.path, sizeof(file.path), "%s", In("file").c_str());
    if (!file.Register()) continue;
    EXPECT_TRUE(make(file.path));
    break;
  }
  EXPECT_LT(waits, 200) << "after a replacement that failed life goes on";
}

}  // namespace
