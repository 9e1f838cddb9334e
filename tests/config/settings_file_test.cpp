#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <regex>

#include "tests/config/scratch.h"

namespace fs = std::filesystem;
constexpr auto Save = TTAVSettings::SaveOptions;

TEST_F(Config, SaveOverwritesTheValueInItsLine) {
  master.comment = "new";
  master.port = 70000;
  master.logsuccess = 1;
  master.filterlist = "10.0.0.1\r\n10.0.0.2";
  master.badlogfile = std::string(3000, 'y').c_str();
  master.oklogfile = "a\rport=1\nb\r\nc";
  const std::string blanks(1100, ' ');
  const Rows rows = {
      {"  Comment \t= \t old value\r\n", "  Comment \t= \t new\r\n"},
      {"comment=", "comment=new\r\n"},
      {"#comment=old\nno sign", "#comment=old\nno sign\r\n"},
      {"host=kept when empty\ntavpath=/x\n", "host=kept when empty\ntavpath=/x\n"},
      {"delayforscripts=7\n", "delayforscripts=7\n"},
      {"port=1\nfreespace=1\n", "port=70000\r\nfreespace=0\n"},
      {"logsuccess=true\n", "logsuccess=1rue\n"},
      {"logsuccess=\r\nlogsuccess=", "logsuccess=1\nlogsuccess=1\r\n"},  // the first byte is the line's end
      {"filterlist=x\noklogfile=x\n", "filterlist=10.0.0.1 10.0.0.2\r\noklogfile=a port=1 b c\r\n"},
      {std::string("odd\0rest\n", 9), "odd\r\n"},
      {"badlogfile=x\n", "badlogfile=" + std::string(1009, 'y') + "\r\n"},
      {"comment=" + blanks + "x\n", "comment=" + blanks.substr(0, 1015) + "\r\n" + blanks.substr(1015) + "x\n"},
      {"logfails=" + blanks.substr(0, 1014), "logfails=" + blanks.substr(0, 1014) + "\r\n"},
  };
  for (const auto& [old, saved, unused] : rows) {
    EXPECT_EQ("ok|", Do(Save, old));
    EXPECT_EQ(saved, Read().substr(0, saved.size())) << old;
  }
}

TEST_F(Config, SaveAddsEverySavedKeyButFreespace) {
  master.freespace = master.udp = 1;
  master.filterlist = "a\r\n\r\n";                                      // the second line end stays
  master.comment = (std::string(1015, 'x') + "tavpath=/evil").c_str();  // the path would be a line of its own
  EXPECT_EQ("ok|", Do(Save, ""));
  const std::string known =
      "host=\r\nport=0\r\ntimeout=0\r\ncomment=" + std::string(1015, 'x') +
      "\r\npassword=\r\n"
      "filteractive=0\r\nfiltermarks=\r\nfilterlist=a \r\n\r\nverboselogfile=\r\nlogsuccess=0\r\nlogfails=0\r\n"
      "oklogfile=\r\nbadlogfile=\r\nallowupdates=0\r\nallowmanage=0\r\nupdateaddr=\r\nmanageaddr=\r\nunc=0\r\n"
      "foldersize=0\r\ncountfiles=0\r\nfileexists=0\r\nfilecrc=0\r\ncomparefiles=0\r\nprocess=0\r\n"
      "cpuusage=0\r\nscript=0\r\nexternal=0\r\nping=0\r\ntcp=0\r\nudp=1\r\ntextlog=0\r\nshellscript=0\r\n"
      "executeaction=0\r\ntcpudpaction=0\r\nsyslogaction=0\r\n";
  const std::string saved = Read();
  EXPECT_EQ(known, saved.substr(0, known.size()));
  EXPECT_EQ("", std::regex_replace(saved.substr(known.size()), std::regex("[a-z]+=0\r\n"), "")) << "more switches";
}

static std::string onDisk;  // the sizes of the files that were synced

// In the place of the system's, for what is linked in here.
extern "C" int fsync(int fd) {
  struct stat status {};
  if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) onDisk += std::to_string(status.st_size) + " ";
  return static_cast<int>(syscall(SYS_fsync, fd));
}

TEST_F(Config, SaveSyncsTheNewFileBeforeItTakesTheOldOnesPlace) {
  onDisk.clear();
  EXPECT_EQ("ok|", Do(Save, "comment=old\n"));
  EXPECT_EQ(std::to_string(fs::file_size(path)) + " ", onDisk);
}

TEST_F(Config, SaveKeepsTheOldFileItsRightsAndOnFailureAll) {
  std::ofstream(path) << "comment=old\n";
  fs::permissions(path, fs::perms(0640));
  signal(SIGXFSZ, SIG_IGN);
  rlimit wide, tight = {10, RLIM_INFINITY};
  prlimit(0, RLIMIT_FSIZE, &tight, &wide);  // stands for a full disk
  const std::string failure = Do(Save);
  prlimit(0, RLIMIT_FSIZE, &wide, nullptr);
  EXPECT_EQ("|Cannot create new configuration file '" + path + ".New'", failure);
  EXPECT_EQ("comment=old\n", Read());
  EXPECT_EQ(1, std::distance(fs::directory_iterator(tree.path), {}));

  fs::create_hard_link(path, path + ".Old");  // as a crash between the two renames leaves it
  EXPECT_EQ("ok|", Do(Save));
  EXPECT_EQ(12u, fs::file_size(path + ".Old"));
  EXPECT_EQ(2, std::distance(fs::directory_iterator(tree.path), {}));
  EXPECT_EQ(fs::perms(0640), fs::status(path).permissions());
}
