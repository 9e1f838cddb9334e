// Files that mean no good: planted at the agent's names, endless folders, and what is no file at all.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include "faults.h"

namespace {

const char* const kPlants[] = {"symlink", "hard link", "pipe", "folder"};

// An agent's folder with a file that must not be touched.
struct TGarden : Agent {
  TGarden() { Write("victim", "precious"), fs::permissions(At("@/victim"), fs::perms::owner_read); }

  // Puts something at `path` that a careless writer would follow, write into, wait for or stumble over.
  void Plant(const std::string& what, const std::string& path) const {
    fs::remove(path);
    if (what == "symlink") fs::create_symlink(At("@/victim"), path);
    if (what == "hard link") fs::create_hard_link(At("@/victim"), path);
    if (what == "pipe") mkfifo(path.c_str(), 0666);
    if (what == "folder") fs::create_directory(path);
  }
  void ExpectUntouched(const std::string& where) const {
    EXPECT_EQ("precious", Read("victim")) << where;
    EXPECT_EQ(fs::perms::owner_read, fs::status(At("@/victim")).permissions()) << where;
  }
};

// Cure: what is at a guessable name is removed, and the file is made anew, exclusively and through no link.
TEST(Files, PlantedAtGuessableNamesAreNeitherFollowedNorAnObstacle) {
  TGarden agent;
  agent.Write("count.sh", "#!/bin/sh\necho $(readlink /proc/$$/fd/1) >where\necho 7\n");
  Start(agent, "proccntscript=@/count.sh\n");
  const std::string process = "TEST-Process\r\n\r\nx\r\n", noNew = "300\nCannot create new configuration file '@/tav.cfg.New'";
  const struct {
    std::string path, request, reply, atFolder;
  } rows[] = {
      {"@/tmp/tav__.upd", "UpgradeCode\r\n300\r\n", "200", "300\nCannot create temp file"},
      {"@/tav.cfg.New", "SetSettings\r\nComment=new\r\n", "200", noNew},
      {"@/tav.cfg.Old", "SetSettings\r\nComment=newer\r\n", "200", "200"},
      {"where", process, "200\n7", "301\nCannot get script results"},
  };
  std::string reply;
  for (const std::string what : kPlants) {
    for (const auto& row : rows) {
      std::string path = agent.At(row.path);
      for (int guess = 0; guess < 20; ++guess) {  // each thread has its own name; the last one works again
        if (row.request == process) Open(agent, process, reply), path = FirstLine(agent.Read("where"));
        EXPECT_TRUE(WaitFor([&] { return IsAlone(agent); }));
        agent.Plant(what, path);
        Open(agent, row.request, reply);
        const bool met = row.request != process || what == "folder" || path == FirstLine(agent.Read("where"));
        if (met) break;
        fs::remove(path);
        EXPECT_LT(guess, 19) << "no name was guessed";
      }
      EXPECT_EQ(agent.At(what == "folder" ? row.atFolder : row.reply), reply) << what << " at " << path;
      agent.ExpectUntouched(what + " at " + path);
      if (what == "folder") fs::remove(path);
    }
  }
  EXPECT_TRUE(agent.TempFolderIsEmpty());
}

// Cure: the same for the note of a program that cannot be executed; one that is not the agent's own is not believed.
TEST(Files, PlantedNotesOfFailedProgramsAreNotBelieved) {
  TGarden agent;
  Start(agent, "");
  constexpr int kAhead = 100;
  for (const std::string what : kPlants) {
    bool met = false;
    for (int guess = 0; guess < 10 && !met; ++guess) {
      const pid_t last = fork();  // the agent's child is one of the next
      if (last == 0) _exit(0);
      waitpid(last, nullptr, 0);
      for (int i = 1; i <= kAhead; ++i) agent.Plant(what, agent.At("@/tmp/tmpStav-") + std::to_string(last + i) + ".txt");
      const std::string reply = agent.Ask("TEST-ExternalPrg|/no/such|||0");
      met = reply == "200\n255" || std::distance(fs::directory_iterator(agent.At("@/tmp")), {}) < kAhead;
      EXPECT_TRUE(what == "folder" || reply == "301\nexec error: No such file or directory") << what << reply;
      agent.ExpectUntouched(what);
      for (const fs::directory_entry& entry : fs::directory_iterator(agent.At("@/tmp"))) fs::remove(entry.path());
    }
    EXPECT_TRUE(met) << what;
  }
}

// Cure: the upgrade's script is made anew, and the pid file is opened through no link and only as a plain file.
TEST(Files, PlantedAtTheUpgradeScriptAndThePidFile) {
  for (const std::string what : kPlants) {
    TGarden agent;
    agent.Write("old", "the program before");
    agent.Plant(what, agent.At("@/tav.pid"));
    agent.Plant(what, agent.At("@/tmp/tavupd__.sh"));
    Start(agent, "tavpath=@/old\nverboselogfile=verbose.log\n", {"-d", "-v"});
    EXPECT_NE(std::string::npos, agent.Read("log2.txt").find("Failed to create pid file " + agent.At("@/tav.pid")));
    std::string reply, file = "#!/bin/sh\necho $* >args\n#";
    file.resize(300, '#');
    Socket socket = Open(agent, "UpgradeCode\r\n300\r\n", reply);
    socket.Send(file + Cipher(Direction::kSeal, Md5(file), "session"));
    reply = ReadReply(socket, "session");
    socket = Socket();
    if (what == "folder") {
      EXPECT_EQ("300\nBinary code transferred. Cannot create script file", reply);
      ExpectServed(agent);
    } else {
      EXPECT_EQ("200", reply);
      EXPECT_TRUE(WaitFor([&] { return agent.Read("args") == agent.At("-d -v @/tav.cfg\n"); })) << what;
    }
    agent.ExpectUntouched(what);
  }
}

// Cure: an explicit stack, folders entered by descriptor, and a bounded number of those.
TEST(Files, FoldersOfTwoThousandLevelsAreWalkedWithFewDescriptors) {
  Agent agent("");
  const long before = Descriptors(agent.pid);
  int folder = open(agent.folder.c_str(), O_RDONLY | O_CLOEXEC);
  for (int level = 0; level <= 2000; ++level) {
    ASSERT_EQ(0, mkdirat(folder, "deep", 0755)) << level;
    const int next = openat(folder, "deep", O_RDONLY | O_CLOEXEC);
    if (level % 500 == 1) close(openat(next, "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    close(folder);
    folder = next;
  }
  close(folder);
  long most = 0;
  auto walk = std::async(std::launch::async, [&] { return agent.Ask("TEST-CountFiles|@/deep|*|1|0|0"); });
  while (walk.wait_for(std::chrono::seconds(0)) != std::future_status::ready) most = std::max(most, Descriptors(agent.pid));
  EXPECT_EQ("200\n4", walk.get());
  EXPECT_LE(most, before + 40);
  EXPECT_GT(most, before + 10) << "the walk was watched";
  EXPECT_EQ("200\n     0", agent.Ask("TEST-FolderSize|@/deep|1"));
  EXPECT_EQ(0, system(("rm -rf " + agent.At("@/deep")).c_str()));  // deeper than paths are long
}

// Cure: what is no plain file is opened without blocking, if at all, and any read error ends the loop.
TEST(Files, PipesSocketsAndDevicesAreAnsweredAtOnce) {
  Agent agent("badlogfile=pipe\n");
  agent.Write("plain", "abc");
  mkfifo(agent.At("@/pipe").c_str(), 0600);
  const Socket bound(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  agent.At("@/socket").copy(name.sun_path, sizeof name.sun_path - 1);
  ASSERT_EQ(0, bind(bound.Descriptor(), reinterpret_cast<sockaddr*>(&name), sizeof name));
  const std::string compare = "TEST-FileCompare|";
  std::vector<std::future<void>> asked;
  for (const std::string file : {"@/pipe", "@/socket", "/dev/zero", "/dev/random", "/dev/tty", "/dev/null", "@/tmp"}) {
    for (const std::string& request :
         {"TEST-FileCRC|" + file, compare + "1|" + file + "|@/plain|0|0|1", compare + "1|@/plain|" + file + "|0|0|1",
          compare + "2|" + file + "|@/plain", compare + "2|@/plain|" + file, compare + "3|" + file + "|x|1|0",
          "TEST-TextLog2|" + file + "|0|1|1|0|x|0|0|0|0", "TEST-FileExists|" + file, "TEST-FolderSize|" + file + "|1",
          "TEST-CountFiles|" + file + "|*|1|0|0", "GetFilesList|" + file + "||1|1|1|1|0|0|0", "TEST-UNC|" + file,
          "TEST-ExternalPrg|" + file + "|||1000", "NoSuchCommand|" + file}) {
      asked.push_back(std::async(std::launch::async, [&agent, request] {
        const Stopwatch watch;
        const std::string code = FirstLine(agent.Ask(request));
        EXPECT_TRUE(code == "200" || code == "301" || code == "500") << request << " gave " << code;
        EXPECT_LT(watch.Seconds(), kPrompt + 2) << request;  // a log that cannot be opened is tried three times
      }));
    }
  }
  asked.clear();
  EXPECT_EQ("301\nCannot open file", agent.Ask("TEST-FileCRC|@/pipe"));
  EXPECT_EQ("301\nRead error", agent.Ask("TEST-FileCRC|/dev/zero"));
  fs::rename(agent.At("@/pipe"), agent.At("@/tav.cfg"));
  EXPECT_EQ(agent.At("300\nCannot open configuration file '@/tav.cfg'"), agent.Ask("ReloadCfg"));
  ExpectServed(agent);
}

}  // namespace
