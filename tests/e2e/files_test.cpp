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
  for (const size_t size : {0u, 2048u, 2049u, 4096u})
    agent.Write("crc/" + std::to_string(size), std::string(size, 'x'));
  agent.Write("tree/a.txt", "0123456789");
  agent.Write("tree/sub/b.txt", "01234");
  agent.Write("tree/sub/.hidden", "012");
  agent.Write("macro/old/f", "1234567");
  agent.Write("macro/new/f", "123456789", 90);
  agent.Age("macro/old", 60);
  ASSERT_EQ(0, symlink("a.txt", agent.At("@/tree/link").c_str()) + mkfifo(agent.At("@/fifo").c_str(), 0600));
  const timespec march[2] = {{1236251229, 0}, {1236251229, 0}};  // 5 March 2009 14:07:09 in the agent's zone
  ASSERT_EQ(0, utimensat(AT_FDCWD, agent.At("@/tree/sub/b.txt").c_str(), march, 0));

  agent.Write("round", "");
  const timespec ago[2] = {{time(nullptr) - 100, 0}, {time(nullptr) - 100, 0}};
  ASSERT_EQ(0, utimensat(AT_FDCWD, agent.At("@/round").c_str(), ago, 0));

  agent.ExpectRows("TEST-UNC|", R"(
    / => ~200| *[0-9]{6,}| *[0-9]+| *[0-9]+|[0-9]+ ; /\ => ~200| *[0-9]{6,}| *[0-9]+| *[0-9]+|[0-9]+
    \ => 501|Path not specified ; /no/such => 301)");
  agent.ExpectRows("TEST-FolderSize|@/", R"(
    tree|0 => 200|    10 ; tree|1 => 200|    18 ; tree/*.txt|1 => 200|    15 ; tree/a.txt|0 => 200|    10
    tree/*.none|0 => 200|     0 ; tree/none|0 => 301|Folder/File doesn`t exist or access denied
    macro/%NewestFolder%|0||||||1 => 200|     9 ; macro/%oldestfolder%|0||||||1 => 200|     7)");
  agent.ExpectRows("TEST-FileExists|@/", R"(
    tree/a.txt => ~200|    10|[0-9]{14}|[0-9]{14}|@/tree/a.txt|min|0
    tree/sub/b* => ~200|     5|[0-9]{14}|05032009140709|@/tree/sub/b.txt|min|[0-9]{7}
    macro/%newestfolder%/%OLDESTFILE%||||||1 => ~200|     9|[0-9]{14}|[0-9]{14}|@/macro/new/f|min|90
    round => ~200|     0|[0-9]{14}|[0-9]{14}|@/round|min|1
    tree/link => ~200|     5|[0-9]{14}|[0-9]{14}|@/tree/link|min|0 ; tree/none* => 301|no such file or acess denied)");
  agent.ExpectRows("TEST-FileCRC|", R"(
    @/macro/new/f => 200|873187033 ; @/crc/2049 => 200|2023187561 ; @/crc/2048 => 301|Read error
    @/crc/4096 => 301|Read error ; @/crc/0 => 301|Read error ; @/crc => 301|Read error ; /dev/null => 301|Read error
    /proc/self/limits => ~200| *[0-9]+
    @/fifo => 301|Cannot open file ; @/none => 301|Cannot open file)");
  agent.ExpectRows("GetFilesList|", R"(
    @/tree||1|0|0|0|0|0|0 => ~200|@/tree/|2|2(|[a-z.]+|16){2} ; ||1|0|0|0|0|0|0 => ~200|/|[0-9]+|2(|[^|]+|16)+
    @/tree/*.log|*.txt|0|1|1|1|1|0|0 => 200|@/tree/|1|3|a.txt|0|    10
    @/tree/sub/||0|1|0|0|1|0|1 => 200|@/tree/sub/|1|4|b.txt|0|     5|05032009140709
    @/tree/sub/||0|1|0|0|0|1|1 => ~200|@/tree/sub/|1|4|b.txt|0|[0-9]{4}20[1-9][0-9]{7}|05032009140709
    @/tree/sub|.*|0|1|1|0|0|0|0 => 200|@/tree/sub/|1|2|.hidden|2 ; @/none/||1|1|1|1|0|0|0 => 200|@/none/|0|2
    @|f*o|0|1|0|1|0|0|0 => 200|@/|1|2|fifo|4 ; @|f*o|0|1|0|0|0|0|0 => 200|@/|0|2)");
}

TEST(Files, CompareAndCount) {
  Agent agent("");
  agent.Write("x", "abc", 10);
  agent.Write("y", "abcdef", 10);
  agent.Write("z", "abc", 20);
  agent.Write("words", "one two2 two");
  agent.Write("none", "");
  agent.Write("one/file", "abd");
  agent.Write("block", std::string(262144, 'x'));
  agent.Write("longer", std::string(262144, 'x') + "y");
  for (const size_t size : {8388608u, 8388609u}) {
    agent.Write(std::to_string(size), "");
    std::filesystem::resize_file(agent.At("@/" + std::to_string(size)), size);
  }
  agent.ExpectRows("TEST-FileCompare|", R"(
    1|@/x|@/y|0|0|1 => 200|1 ; 1|@/x|@/y|1|1|1 => 200|0 ; 1|@/x|@/z|1|1|1 => 200|0 ; 1|@/x|@/z|0|1|1 => 200|1
    1|@/x|@/words|0|0|0 => 200|1 ; 1|@/x|@/no => 301|File doesn`t exist ; 1|@/one|@/x => 301|File doesn`t exist
    1|@/one/%newestfile%|@/x|0|1|1||||||1 => 200|0 ; 1|@/x|@/one/%newestfile%|0|1|1|||||||1 => 200|0
    2|@/y|@/x => 200|1 ; 2|@/x|@/none => 200|1 ; 2|@/x|@/y => 301|I/O Error ; 2|@/x|@/8388608 => 301|I/O Error
    1|@/block|@/longer|0|0|1 => 200|1 ; 1|@/block|@/longer|0|1|1 => 200|0 ; 2|@/8388608|@/8388608 => 200|1
    2|@/x|@/one/%newestfile%||||||1|1 => 301|File doesn`t exist
    2|@/x|@/8388609 => 301|The size of the second file cannot exceed 8Mb
    3|@/y|cde|1|0 => 200|1 ; 3|@/y|CDE|0|0 => 200|1 ; 3|@/y|CDE|1|0 => 301|I/O Error ; 3|@/words|two|1|1 => 200|1
    3|@/y|bcd|1|1 => 301|I/O Error ; 3|@/one/%newestfile%|b|1|0||||||1 => 200|1
    4|@/x => 501|Wrong parameter ; 9|@/x => 501|Wrong parameter ; 9|@/no => 301|File doesn`t exist)");

  EXPECT_TRUE(WaitFor([] { return time(nullptr) % 60 < 50; })) << "the minute stays for a while";
  agent.Write("count/f1", "0123456789", 120);
  agent.Write("count/f2", std::string(100, 'x'));
  agent.Write("count/.f", "x");
  agent.Write("count/d1/f3", "0123456789");
  agent.Write("count/.hid/f4", "");
  agent.Write("count/d2/deep/none.txt", "");
  ASSERT_EQ(0, symlink("f1", agent.At("@/count/link").c_str()) + symlink("d1", agent.At("@/count/into").c_str()));
  agent.ExpectRows("TEST-CountFiles|@/count", R"(
    |*|0|0|0 => 200|3 ; |*|1|0|0 => 200|5 ; |f*|1|0|0 => 200|3 ; |no*|0|0|0 => 200|0 ; |*|0|1|60 => 200|1
    |*|0|2|60 => 200|2 ; |*|0|3|10 => 200|1 ; |*|0|4|10 => 200|1 ; |*|0|5|0 => 200|3 ; |d?|0|5|0 => 200|2
    |f1|0|1|119 => 200|1 ; |f1|0|1|120 => 200|0 ; |f1|0|2|120 => 200|0 ; |f1|0|2|121 => 200|1 ; |no*|1|0|0 => 200|1
    |*|1|5|0 => 200|4 ; /none|*|1|0|0 => 301|Folder doesn`t exist or access denied
     |*|0|0| => 200|3 ; |*|0|6|0 => 501|Wrong parameter ; |*|0|-1|0 => 501|Wrong parameter
    |*|0|0|x => 501|Wrong parameter ; /none|*|0|0|0 => 301|Folder doesn`t exist or access denied
    /d2/%newestfolder%|*|0|0|0||||||1 => 200|1)");
}

// A folder that can't be opened for want of descriptors is not one that adds nothing.
TEST(Files, AWalkWithoutDescriptorsGivesNoFigure) {
  Agent agent;
  agent.Write("few", "#!/bin/sh\nulimit -n 24\nexec " + AgentBinary() + " \"$@\"\n");
  agent.program = agent.At("@/few");
  std::string deep = "deep/";
  for (int level = 0; level < 40; level++) agent.Write((deep += "d/") + "f", "x");
  agent.Start();
  agent.ExpectRows("", R"(
    TEST-FolderSize|@/deep|1 => 301|Folder/File doesn`t exist or access denied
    TEST-CountFiles|@/deep|*|1|0|0 => 301|Folder doesn`t exist or access denied
    TEST-FolderSize|@/deep|0 => 200|     0 ; TEST-CountFiles|@/deep/d|*|0|0|0 => 200|1)");
}

}  // namespace
