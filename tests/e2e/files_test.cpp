// The tests of files and folders, over a small tree in the agent's folder.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "agent_fixture.h"

namespace {

TEST(Files, SpaceSizePresenceChecksumAndLists) {
  Agent agent("");
  agent.Write("crc", std::string(2049, 'x'));
  agent.Write("tree/a.txt", "0123456789");
  agent.Write("tree/sub/b.txt", "01234");
  agent.Write("tree/sub/.hidden", "012");
  agent.Write("macro/old/f", "1234567");
  agent.Write("macro/new/f", "123456789", 90);
  agent.Age("macro/old", 60);
  ASSERT_EQ(0, symlink("a.txt", agent.At("@/tree/link").c_str()));
  const timespec march[2] = {{1236251229, 0}, {1236251229, 0}};  // 5 March 2009 14:07:09 in the agent's zone
  ASSERT_EQ(0, utimensat(AT_FDCWD, agent.At("@/tree/sub/b.txt").c_str(), march, 0));

  agent.ExpectRows("TEST-", R"(
    UNC|/ => ~200| *[0-9]{6,}| *[0-9]+| *[0-9]+|[0-9]+ ; UNC|/no/such => 301
    FolderSize|@/tree|1 => 200|    18 ; FolderSize|@/macro/%oldestfolder%|0||||||1 => 200|     7
    FileExists|@/tree/sub/b* => ~200|     5|[0-9]{14}|05032009140709|@/tree/sub/b.txt|min|[0-9]{7}
    FileExists|@/macro/%newestfolder%/%OLDESTFILE%||||||1 => ~200|     9|[0-9]{14}|[0-9]{14}|@/macro/new/f|min|90
    FileExists|@/tree/link => ~200|     5|[0-9]{14}|[0-9]{14}|@/tree/link|min|0
    FileCRC|@/crc => 200|2023187561 ; FileCRC|@/tree => 301|Read error ; FileCRC|@/none => 301|Cannot open file
    FileCompare|1|@/crc|@/tree/%newestfile%|0|1|1|||||||1 => 200|0 ; FileCompare|9|@/crc => 501|Wrong parameter
    CountFiles|@/tree|*|1|0|0 => 200|3 ; CountFiles|@/macro/%newestfolder%|*|0|0|0||||||1 => 200|1)");
  agent.ExpectRows("GetFilesList|", R"(
    @/tree||1|0|0|0|0|0|0 => ~200|@/tree/|2|2(|[a-z.]+|16){2} ; ||1|0|0|0|0|0|0 => ~200|/|[0-9]+|2(|[^|]+|16)+
    @/tree/*.log|*.txt|0|1|1|1|1|0|0 => 200|@/tree/|1|3|a.txt|0|    10
    @/tree/sub/||0|1|0|0|1|0|1 => 200|@/tree/sub/|1|4|b.txt|0|     5|05032009140709)");
}

}  // namespace
