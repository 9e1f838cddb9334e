// Running programs: the helper scripts, scripts that the server sends, and commands, with their time-outs.
#include <gtest/gtest.h>

#include <filesystem>
#include <future>

#include "agent_fixture.h"

namespace {

TEST(Scripts, HelpersAnswerWithWhatTheyPrint) {
  const Agent agent("proccntscript=@/n.sh\ncpuusagescript=@/cpu.sh\nproclistscript=@/cpu.sh\n");
  agent.Write("n.sh", "#!/bin/sh\necho $#\n");
  agent.Write("cpu.sh", "#!/bin/sh\necho 12.5\n");
  agent.ExpectRows("", R"(TEST-Process||one two three => 200|3 ; TEST-Process||$(echo a b) => 200|2
    TEST-CPU => 200|12.5000 ; GetProcessesList => 200|12.5%0D%0A12.5%0D%0A)");
  for (const char* script : {"@/n.sh", "@/cpu.sh"}) std::filesystem::remove(agent.At(script));
  agent.ExpectRows("", R"(TEST-Process||one => 301|ProcCnt script doesn't exist
    TEST-CPU => 301|CPUUsage script doesn't exist ; GetProcessesList => 301|ProcList script doesn't exist)");
  EXPECT_TRUE(agent.TempFolderIsEmpty());
}

TEST(Scripts, CommandsAndSentScriptsAnswerWithTheirOutcome) {
  Agent agent("executeaction=1\n");
  agent.Write("wd/marker", "");
  agent.Write("plain", "not a program");
  for (const Exchange& row : Rows(R"(
    sh -c 'exit 3' => 200|3 ; sh -c 'test "$1" = "b c"' x 'b c' => 200|0
    sh -c 'kill -9 $$' => 301|abnormal termination ; @/plain => 301|exec error: Permission denied)")) {
    agent.Expect("TEST-ExternalPrg|" + row.request + "|||0", row.reply);
    agent.Expect("ACT-ExternalCmd|" + row.request + "||0|0", row.reply);
  }
  std::string numbers;
  for (int i = 1; i <= 5000; ++i) numbers += std::to_string(i) + "%0D%0A";
  agent.Expect("TEST-ShellScript|sh %script% |seq 5000||0|100000", "200|5000|" + numbers);
  agent.ExpectRows("", R"(
    TEST-ExternalPrg||||0 => 501 ; TEST-ExternalPrg|true|||x => 501|Wrong parameter
    ACT-ExternalCmd|test -f marker|@/wd|0|0 => 200|0 ; ACT-ExternalCmd|true|/no/such|0|0 => 200|0
    ACT-ExternalCmd|true||x|0 => 501|Wrong parameter ; ACT-ExternalCmd|true||0|x => 501|Wrong parameter
    TEST-ShellScript|sh %script% %params% |echo a%0D%0Aecho scriptres:5 $1%0D%0Aecho b|p|5|1 => 200|scriptres:5 p|a%0D%0A
    TEST-ShellScript|sh %script% a|echo SCRIPTRES:1; echo; echo ' a '||5|2 => 200|SCRIPTRES:1|SCRIPTRES:1%0D%0Aa%0D%0A
    TEST-ShellScript|sh %script% a|echo one; echo two >&2; exit 7||0|0 => 200|two|
    TEST-ShellScript|sh %script% a|echo no scriptres:1; echo b||5|0 => 200|b|
    TEST-ShellScript|%SCRIPT% a|#!/bin/sh%0Aecho $#||x|0 => 200|1|
    TEST-ShellScript|%script%|true||0|0 => 301|Script execution error: exec error: No such file or directory
    TEST-ShellScript|echo as it stands|no script||0|1 => 200|as it stands|as it stands%0D%0A)");
  EXPECT_TRUE(agent.TempFolderIsEmpty());
}

TEST(Scripts, TimeOutsEndOnlyWhatTheyShould) {
  const Agent agent("executeaction=1\ncpuusagescript=@/cpu.sh\n");
  agent.Write("cpu.sh", "#!/bin/sh\nsleep 60\n");
  const struct {
    const char* request;
    const char* reply;
    double least, most;  // seconds
  } rows[] = {
      {"TEST-CPU", "301|Cannot execute script", 8, 12},
      {"TEST-ExternalPrg|sleep 60|||1500", "301|abnormal termination", 1, 5},
      {"ACT-ExternalCmd|sleep 4||0|-1", "200|0", 0.9, 3.5},
      {"TEST-ShellScript|sh %script% a|sleep 60||2|0", "301|Script execution error: abnormal termination", 2, 6},
      {"TEST-ShellScript|sh %script% a|sleep 60||-5|0", "301|Script execution error: abnormal termination", 0, 3},
  };
  const double slow = Sanitized() ? 4 : 1;
  std::vector<std::future<void>> runs;
  for (const auto& row : rows) {
    runs.push_back(std::async(std::launch::async, [&agent, &row, slow] {
      const Stopwatch watch;
      agent.Expect(row.request, row.reply);
      EXPECT_TRUE(watch.Seconds() >= row.least && watch.Seconds() <= row.most * slow)
          << row.request << watch.Seconds();
    }));
  }
  for (auto& run : runs) run.get();
  EXPECT_TRUE(WaitFor([&] { return Children(agent.pid).empty(); })) << "no child and no zombie stays";
  EXPECT_TRUE(agent.TempFolderIsEmpty());
}

}  // namespace
