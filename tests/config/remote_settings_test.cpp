#include "config/remote_settings.h"

#include "tests/config/scratch.h"

const char* kOld =
    "port=4000\npassword=p\ncomment=old\nshellscript=0\nfilterlist=1.1.1.1 2.2.2.2\nfiltermarks=10\n";

std::string Ask(void (*handler)(const BVRequest&, TAVReply&), const std::string& lines) {
  TAVReply reply;
  handler(BVRequest(lines.c_str()), reply);
  return Std(reply.Text());
}

TEST_F(Config, GetSettingsIsGetInfoAndTheManagementSettings) {
  Do(TTAVSettings::LoadOptions, kOld);
  const std::string info = Ask(GetAgentStatus, ""), all = Ask(GetAgentSettings, "");
  const size_t host = info.find("HostName=");
  EXPECT_EQ(
      "200\nAgentName=ZO Tavisto\nAgentPlatform=Linux (Red Hat, Mandrake, SuSE)\nAgentVersion=1.30\n"
      "AgentDeveloper=Tavisto, https://tavisto.example\nService=0\nActive=0\nActiveConnections=0\n"
      "OpenedConnections=0\nFailedConnections=0\nAvailable tests=TCP%0D%0AUDP%0D%0AUNC%0D%0AFolder Size%0D%0A"
      "Count Files%0D%0AFile Availability%0D%0AFile Integrity%0D%0AFile Compare%0D%0AText Log%0D%0A"
      "Process%0D%0ACPU Usage%0D%0AExternal%0D%0AShell Script%0D%0A\nEnabled tests=1111111111110\nPort=4000\n"
      "Timeout=4000\nComment=old\nAvailable actions=Execute external command%0D%0ATCP/UDP send%0D%0A"
      "Syslog%0D%0A\nEnabled actions=000\n",
      info.substr(0, host));
  EXPECT_EQ(20, std::count(info.begin(), info.end(), '\n'));
  EXPECT_EQ(info +
                "LogOkConn=0\nLogBadConn=1\nOkLogFile=log1.txt\nBadLogFile=log2.txt\nPassword=p\nIPFiltering=0\n"
                "IPFilterAddr=1.1.1.1%0D%0A2.2.2.2\nIPFilterMarks=10\nAllowUpdates=1\nAllowRManage=1\n"
                "UpdateAddr=127.0.0.1\nManageAddr=127.0.0.1\n",
            all);
}

TEST_F(Config, SetSettingsTakesWhatItKnows) {
  Do(TTAVSettings::LoadOptions, kOld);
  const Rows rows = {
      {" Port = 5050 \r\n", "port", "5050"},
      {"port=1\nPort\n", "port", "5050"},
      {"Comment=a\nComment=b=c\n", "comment", "b=c"},
      {"Comment=x", "comment", "b=c"},  // not a line without its end
      {"TCP=true\n", "tcp", "0"},
      {"Shell Script=1\n", "shellscript", "0"},
      {"NT Event Log=1\n", "NT Event Log", "1"},
      {"IPFilterAddr=3.3.3.3%0D%0A4.4.4.4\n", "filterlist", "3.3.3.3\r\n4.4.4.4"},
  };
  for (const auto& [lines, name, value] : rows) {
    EXPECT_EQ("200\n", Ask(SetAgentSettings, lines));
    EXPECT_EQ(value, InForce(name)) << lines;
  }
  EXPECT_EQ("\r\n3.3.3.3\r\n", Std(SettingsInForce()->activefilter));
  remove(path.c_str());
  EXPECT_EQ("300\nCannot open configuration file '" + path + "'", Ask(SetAgentSettings, "Comment=kept\n"));
  EXPECT_EQ("kept", InForce("comment"));
}
