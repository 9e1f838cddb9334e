#include <sys/stat.h>

#include "tests/config/scratch.h"

constexpr auto Load = TTAVSettings::LoadOptions;
const std::string kGood = "tavpath=/bin/sh\nfiltermarks=1\nfilterlist=10.0.0.1\nport=4000\npassword=one\n";

TEST_F(Config, LineGivesValue) {
  const Rows rows = {
      {"#port=1\n;port=2\nPort = 5000\nport=6000\ncomment=a\n COMMENT = b=c \t\r\n", "port", "5000"},
      {"#comment=1\n;comment=2\n #comment=3\ncomment\ncomment=4", "comment", "4"},
      {"LogSuccess=yes\n", "logsuccess", "0"},
      {"logsuccess=1 # comment\n", "logsuccess", "1"},
      {"timeout=0\n", "timeout", "4000"},
      {"snmp=0\n", "SNMP", "1"},  // not in the file
      {"  filterlist =  %0A10.0.0.1   10.0.0.2 \n", "filterlist", "10.0.0.1\r\n10.0.0.2"},
      {"tavpath=/opt/agent/agent\ncpuusagescript=cpu.sh\n", "cpuusagescript", "/opt/agent//cpu.sh"},
      {"tavpath=/opt/agent/agent\ncpuusagescript=\n", "cpuusagescript", ""},
      {std::string("tmpdir=/usr/\0b\n", 15), "tmpdir", "/usr"},
      {"comment=" + std::string(1015, 'x') + "host=h\n", "host", "h"},  // a piece is a line
  };
  for (const auto& [text, name, value] : rows) {
    Do(Load, text);
    EXPECT_EQ(value, InForce(name)) << text;
  }
}

TEST_F(Config, LoadTellsEveryProblem) {
  const std::string kWarning = "FilterMarks has less items than FilterList";
  EXPECT_EQ("|" + kWarning + "  TCP post is not specified!\n  Password is not specified!\n" +
                "  Full path to the agent is not specified!\n",
            Do(Load, ""));
  EXPECT_EQ("|  Invalid path to the agent!\n", Do(Load, kGood + "tavpath=/nowhere/tav\n"));
  EXPECT_EQ("ok|" + kWarning, Do(Load, kGood + "filtermarks=x11\nfilterlist=1.1.1.1 2.2.2.2\n"));
  EXPECT_EQ("\r\n2.2.2.2\r\n", Std(SettingsInForce()->activefilter));
}

TEST_F(Config, ReloadOfAnUnreadableFileKeepsEverything) {
  Do(Load, kGood + "host=::1\ncomment=c\n");
  const TPasswordKeysPtr keys = PasswordInForce();
  Do(Load, kGood + "port=1\n");
  EXPECT_EQ("::1,,4000", InForce("host") + "," + InForce("comment") + "," + InForce("port"));
  remove(path.c_str());
  mkfifo(path.c_str(), 0600);
  EXPECT_EQ("|Cannot open configuration file '" + path + "'", Do(Load));
  EXPECT_EQ(keys, PasswordInForce());
}
