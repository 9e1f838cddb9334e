// Files that mean no good: planted at the agent's names, endless folders, and what is no file at all.
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>

#include "faults.h"

namespace {

const char* const kPlants[] = {"symlink", "hard link", "pipe", "folder"};

// An agent whose folder has a file that must not be touched.
struct TGarden : Agent {
  TGarden() { PlaceVictim(); }

  void PlaceVictim() const {
    fs::remove(At("@/victim"));
    Write("victim", "precious");
    fs::permissions(At("@/victim"), fs::perms::owner_read);
  }

  // Puts something at `path` that a careless writer would follow, write into, wait for or stumble over.
  void Plant(const std::string& what, const std::string& path) const {
    fs::remove(path);
    if (what == "symlink") fs::create_symlink(At("@/victim"), path);
    if (what == "hard link") fs::create_hard_link(At("@/victim"), path);
    if (what == "pipe") mkfifo(path.c_str(), 0666);
    if (what.find("folder") != std::string::npos) fs::create_directory(path);
    if (what == "their folder") (void)!chown(path.c_str(), 65534, 65534);
  }
  void ExpectUntouched(const std::string& where) const {
    EXPECT_EQ("precious", Read("victim")) << where;
    EXPECT_EQ(fs::perms::owner_read, fs::status(At("@/victim")).permissions()) << where;
  }
};

// Cure: what is at a guessable name is removed, and the file is made anew, exclusively and through no link.
TEST(Files, PlantedAtGuessableNamesAreNeitherFollowedNorAnObstacle) {
  TGarden agent;
  agent.Start();
  const struct {
    const char *path, *request, *reply, *atFolder;
  } rows[] = {
      {"@/tmp/tav__.upd", "UpgradeCode|300", "200", "300|Cannot create temp file"},
      {"@/tav.cfg.New", "SetSettings|Comment=new", "200",
       "300|Cannot create new configuration file '@/tav.cfg.New'"},
      {"@/tav.cfg.Old", "SetSettings|Comment=newer", "200", "200"},
  };
  for (const std::string what : kPlants) {
    for (const auto& row : rows) {
      const std::string path = agent.At(row.path), want = agent.At(what == "folder" ? row.atFolder : row.reply);
      agent.Plant(what, path);
      EXPECT_EQ(Replaced(want, "|", "\n"), ReadReply(agent.Send(row.request))) << what << " at " << path;
      EXPECT_TRUE(agent.IsAlone());
      agent.ExpectUntouched(what + " at " + path);
      fs::remove(path);
    }
  }
  EXPECT_TRUE(agent.TempFolderIsEmpty());
}

// A program that writes its arguments into the file "args".
const std::string kNext = "#!/bin/sh\necho $* >args\n#" + std::string(200, '#');

// Cure: the upgrade's script is made anew, and the pid file is opened through no link and only as a plain file.
TEST(Files, PlantedAtTheUpgradeScriptAndThePidFile) {
  for (const std::string what : kPlants) {
    TGarden agent;
    agent.Write("old", "the program before");
    for (const char* path : {"@/its.pid", "@/tmp/tavupd__.sh"}) agent.Plant(what, agent.At(path));
    agent.Start("tavpath=@/old\npidfile=@/its.pid\nverboselogfile=verbose.log\n", {"-d", "-v"});
    EXPECT_TRUE(agent.Has("log2.txt", "Failed to create pid file " + agent.At("@/its.pid"))) << what;
    const bool refused = what == "folder";
    EXPECT_EQ(refused ? "300\nBinary code transferred. Cannot create script file" : "200", agent.Upgrade(kNext));
    const std::string want = refused ? "" : agent.At("-d -v @/tav.cfg\n");
    EXPECT_TRUE(WaitFor([&] { return agent.Read("args") == want; })) << what;
    agent.ExpectUntouched(what);
  }
}

// Cure: where others can write the temporary files lie in a folder of the agent's own, whose name may be taken.
TEST(Files, PlantedInASharedTemporaryFolderBlockNothing) {
  for (const std::string what : {"", "symlink", "folder", "their folder"}) {
    TGarden agent;
    const std::string own = agent.At("@/open/tav-") + std::to_string(geteuid());
    fs::create_directory(agent.At("@/open"));
    fs::permissions(agent.At("@/open"), fs::perms::all);
    agent.Write("old", "the program before");
    agent.Write("helper", "#!/bin/sh\necho 7\n");
    for (const char* name : {"@/open/tav__.upd", "@/open/tavupd__.sh"}) fs::create_directory(agent.At(name));
    agent.Plant(what, own);
    agent.Start("tavpath=@/old\ntmpdir=@/open\nproccntscript=@/helper\nproclistscript=@/helper\n");
    agent.Expect("TEST-ShellScript|sh %script%|echo $TMPDIR $0||0|0",
                 "~200|@/open @/open/tav-[0-9]+" + std::string(what == "" ? "" : "-[^/]{6}") + "/tmp-.*|");
    agent.ExpectRows("", R"(TEST-Process||x => 200|7 ; GetProcessesList => 200|7%0D%0A7%0D%0A
      TEST-ExternalPrg|/no/such|||0 => 301|exec error: No such file or directory)");
    EXPECT_EQ("200", agent.Upgrade(kNext)) << what;
    EXPECT_TRUE(WaitFor([&] { return agent.Read("args") == agent.At("-i @/tav.cfg\n"); })) << what;
    agent.ExpectUntouched(what);
    EXPECT_TRUE(what != "folder" || fs::is_empty(own)) << what;
  }
}

// Cure: a log is a regular file or a device, reached through a link only where nobody else can have put that.
TEST(Files, PlantedLogsAreNeitherFollowedNorFed) {
  TGarden agent;
  for (const char* folder : {"@/open", "@/shut"}) fs::create_directory(agent.At(folder));
  fs::permissions(agent.At("@/open"), fs::perms::all);
  agent.Start("badlogfile=@/open/log\nverboselogfile=@/shut/log\n", {"-i", "-v"});
  const struct {
    const char *log, *what;
    bool isFed;  // what was planted
  } rows[] = {{"open/log", "", false},       {"shut/log", "", false},          {"open/log", "symlink", false},
              {"shut/log", "symlink", true}, {"open/log", "hard link", false}, {"shut/log", "hard link", true},
              {"open/log", "pipe", false},   {"shut/log", "pipe", false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.what) + " at " + row.log);
    const std::string path = agent.At("@/") + row.log, what = row.what;
    agent.Plant(what, path);
    const Socket reader(what != "pipe" ? -1 : open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    agent.Ask("Word");
    char c;
    EXPECT_TRUE(what != "pipe" || read(reader.Descriptor(), &c, 1) <= 0);
    if (!row.isFed) agent.ExpectUntouched("");
    EXPECT_EQ(row.isFed, agent.Has("victim", "Word"));
    EXPECT_TRUE(what != "" || agent.Has(row.log, "Word"));
    fs::remove(path);
    agent.PlaceVictim();
  }
  agent.Plant("symlink", agent.At("@/open/log"));
  kill(agent.pid, SIGSEGV);
  EXPECT_TRUE(agent.Shows("Segmentation fault!!", "shut/log"));
  agent.ExpectUntouched("a fault");
}

// Cure: the name that the old file has meanwhile is cut.
TEST(Files, AConfigurationOfALongNameKeepsItsOldContent) {
  for (const size_t length : {247u, 248u, 251u}) {
    Agent agent;
    const std::string name(length, 'n');
    agent.Write(name, agent.Defaults());
    agent.Launch({"-i", agent.At("@/" + name)});
    for (const char* request : {"SetSettings|Comment=first", "SetSettings|Comment=last"})
      agent.Expect(request, "200");
    EXPECT_TRUE(agent.Has(name + ".Old", "comment=first")) << length;
    EXPECT_TRUE(agent.Has(name, "comment=last")) << length;
    EXPECT_FALSE(fs::exists(agent.At("@/" + name.substr(0, 247) + ".Old.New"))) << length;
  }
}

// Cure: an explicit stack, folders entered by descriptor, and a bounded number of those.
TEST(Files, FoldersOfTwoThousandLevelsAreWalkedWithFewDescriptors) {
  Agent agent("");
  const long before = RestingDescriptors(agent);
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
  auto walk = agent.Asking("TEST-CountFiles|@/deep|*|1|0|0");
  while (walk.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
    most = std::max(most, Descriptors(agent.pid));
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
  // Waits until somebody opens the pipe to read, which the agent must not.
  const auto writer = std::async(
      std::launch::async, [path = agent.At("@/pipe")] { return Socket(open(path.c_str(), O_WRONLY | O_CLOEXEC)); });
  for (const char* target : {"@/pipe", "@/socket", "/dev/zero", "/dev/random", "/dev/tty", "/dev/null", "@/tmp"}) {
    for (std::string request :
         {"TEST-FileCRC|%", "TEST-FileCompare|1|%|@/plain|0|0|1", "TEST-FileCompare|1|@/plain|%|0|0|1",
          "TEST-FileCompare|2|%|@/plain", "TEST-FileCompare|2|@/plain|%", "TEST-FileCompare|3|%|x|1|0",
          "TEST-TextLog2|%|0|1|1|0|x|0|0|0|0", "TEST-FileExists|%", "TEST-FolderSize|%|1", "TEST-UNC|%",
          "TEST-CountFiles|%|*|1|0|0", "GetFilesList|%||1|1|1|1|0|0|0", "TEST-ExternalPrg|%|||1000",
          "NoSuchCommand|%"}) {
      request.replace(request.find('%'), 1, target);
      const Stopwatch watch;
      const std::string code = FirstLine(agent.Ask(request));
      EXPECT_TRUE(code == "200" || code == "301" || code == "500") << request << " gave " << code;
      EXPECT_LT(watch.Seconds(), kPrompt + 2) << request;  // a log that cannot be opened is tried three times
    }
  }
  EXPECT_EQ(std::future_status::timeout, writer.wait_for(std::chrono::seconds(0))) << "its writer was woken";
  const Socket reader(open(agent.At("@/pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  writer.wait();
  fs::rename(agent.At("@/pipe"), agent.At("@/tav.cfg"));
  agent.Expect("ReloadCfg", "300|Cannot open configuration file '@/tav.cfg'");
  ExpectServed(agent);
}

}  // namespace
