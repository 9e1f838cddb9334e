// Status and settings: GetInfo, GetSettings, what SetSettings keeps and saves, reloads, and the port that moves.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#include <filesystem>

#include "agent_fixture.h"

namespace {

const char kInfo[] = R"(~200|AgentName=ZO Tavisto|AgentPlatform=Linux \(Red Hat, Mandrake, SuSE\)|AgentVersion=1.30
|AgentDeveloper=[^|]+|Service=0|Active=0|ActiveConnections=[12]|OpenedConnections=[12]|FailedConnections=0
|Available tests=TCP%0D%0AUDP%0D%0AUNC%0D%0AFolder Size%0D%0ACount Files%0D%0AFile Availability%0D%0AFile Integrity
%0D%0AFile Compare%0D%0AText Log%0D%0AProcess%0D%0ACPU Usage%0D%0AExternal%0D%0AShell Script%0D%0A
|Enabled tests=1011111111111|Port=PORT|Timeout=4000|Comment=a comment
|Available actions=Execute external command%0D%0ATCP/UDP send%0D%0ASyslog%0D%0A|Enabled actions=001
|HostName=HOST|RunningOS=Linux [^|]+ [^|]+|OSUpdates=not implemented)";
const char kSettings[] =
    R"(|LogOkConn=0|LogBadConn=1|OkLogFile=log1.txt|BadLogFile=log2.txt|Password=secret|IPFiltering=0
|IPFilterAddr=10.0.0.1%0D%0A10.0.0.2|IPFilterMarks=10|AllowUpdates=1|AllowRManage=1
|UpdateAddr=127.0.0.1|ManageAddr=127.0.0.1)";

TEST(Settings, StatusAndSettingsAreToldLineByLine) {
  const Agent agent("comment=a comment\nudp=0\nsyslogaction=1\nfilterlist=10.0.0.1  10.0.0.2\nfiltermarks=10\n");
  utsname host;
  uname(&host);
  const auto filled = [&](const std::string& text) {
    const std::string named = Replaced(Replaced(text, "\n", ""), "HOST", host.nodename);
    return Replaced(named, "PORT", std::to_string(agent.port));
  };
  agent.Expect("GetInfo", filled(kInfo));
  agent.Expect("GetSettings", filled(std::string(kInfo) + kSettings));
}

TEST(Settings, NamesMustMatchAndValuesAreDecoded) {
  Agent agent("");
  for (const Exchange& row : Rows(R"(
    |Comment = one  => Comment=one ; |comment=two => Comment=one ; |Comment|No Such=1 => Comment=one
    |Comment=x|Comment=a=b => Comment=a=b ; |Shell Script=0 => Enabled tests=1111111111111
    |UDP=0|CPU Usage=01|Text Log=yes => Enabled tests=1011111101011 ; |Timeout=12x => Timeout=12
    |Execute external command=1|Syslog=1 => Enabled actions=101
    |IPFilterAddr=1.1.1.1%0Aport=1 => IPFilterAddr=1.1.1.1%0Aport=1)")) {
    agent.Expect("SetSettings" + row.request, "200");
    EXPECT_TRUE(agent.Tells(row.reply)) << row.request;
  }
  EXPECT_EQ("200", agent.AskRaw("SetSettings\r\nComment=no line end"));
  EXPECT_TRUE(agent.Tells("Comment=a=b"));
  EXPECT_TRUE(agent.Has("tav.cfg", "filterlist=1.1.1.1 port=1\r\n")) << "no line break gets in";
}

TEST(Settings, AReloadTakesTheFileAndAFailedOneSaysWhy) {
  Agent agent("comment=first\ntimeout=7000\nudp=0\n");
  agent.Write("tav.cfg", "port=1\n" + agent.Defaults() + "filtermarks=11\n");
  agent.Expect("ReloadCfg", "200|Ok");
  for (const char* line : {"Comment=", "Timeout=7000", "Enabled tests=1111111111111"})
    EXPECT_TRUE(agent.Tells(line)) << line;
  std::filesystem::rename(agent.At("@/tav.cfg"), agent.At("@/away"));
  agent.Expect("ReloadCfg", "300|Cannot open configuration file '@/tav.cfg'");
  agent.Expect("SetSettings|Comment=kept", "300|Cannot open configuration file '@/tav.cfg'");
  EXPECT_TRUE(agent.Tells("Comment=kept"));
  agent.Write("tav.cfg", agent.Defaults() + "password=\ntavpath=relative\n");
  agent.Expect("ReloadCfg", "300|  Password is not specified!|  Full path to the agent is not specified!");
  agent.Write("tav.cfg", agent.Defaults());
  agent.Expect("ReloadCfg", "closed");  // the empty password holds, and only an empty proof proves it
  agent.password = "";
  agent.Expect("ReloadCfg", "200|Ok");
}

TEST(Settings, HangUpReloadsADaemonAndEndsAnInteractiveAgent) {
  Agent daemon("", {"-d"}), interactive("");
  daemon.Append("tav.cfg", "comment=told by a signal\n");
  kill(daemon.PidInFile(), SIGHUP);
  EXPECT_TRUE(WaitFor([&] { return daemon.Tells("Comment=told by a signal"); }));
  kill(interactive.pid, SIGHUP);
  EXPECT_EQ(256 + SIGHUP, interactive.ExitStatus());
}

TEST(Settings, AChangedPortMovesTheListenerOrFallsBack) {
  Agent moves(""), stays(""), outOfRange("");
  const Socket taken = ServeTcp();
  const std::string next = std::to_string(FreePort());
  moves.Expect("SetSettings|Port=" + next, "200");
  stays.Expect("SetSettings|Port=" + std::to_string(taken.Port()), "200");
  outOfRange.Expect("SetSettings|Port=70000", "200");
  EXPECT_TRUE(moves.Shows("Server port switching .. Ok\n"));
  moves.Expect("GetInfo", "refused");
  moves.port = atoi(next.c_str());
  EXPECT_TRUE(moves.Tells("Port=" + next));
  for (Agent* agent : {&stays, &outOfRange}) {
    EXPECT_TRUE(agent->Shows("Return to original port\n")) << agent->Console();
    EXPECT_EQ(1u, agent->Count("Error: cannot open new port for listening\n"));
    EXPECT_TRUE(agent->Tells("Port=" + std::to_string(agent->port)));
  }
  EXPECT_EQ(0u, outOfRange.Read("tav.cfg").find("port=70000\r\n"));
}

}  // namespace
