// Running programs: the helper scripts, scripts that the server sends, and commands.
#include <gtest/gtest.h>

#include <filesystem>

#include "agent_fixture.h"

namespace {

TEST(Scripts, AnswerWithWhatIsMissingOrWentWrong) {
  const Agent agent("");
  agent.Write("plain", "not a program");
  agent.ExpectRows("", R"(
    TEST-Process||one => 301|ProcCnt script is not speified
    GetProcessesList => 301|ProcList script is not speified
    TEST-CPU => 301|CPUUsage script is not speified
    TEST-ExternalPrg||||0 => 501
    TEST-ExternalPrg|true|||x => 501|Wrong parameter
    TEST-ExternalPrg|sh -c 'kill -9 $$'|||0 => 301|abnormal termination
    TEST-ExternalPrg|@/plain|||0 => 301|exec error: Permission denied
    TEST-ShellScript|echo as it stands|no script||0|1 => 200|as it stands|as it stands%0D%0A
    TEST-ShellScript|%SCRIPT% a|#!/bin/sh%0Aecho $#||x|0 => 200|1|
    TEST-ShellScript|sh %script% a|echo no scriptres:1; echo b||5|0 => 200|b|
    TEST-ShellScript|sh %script% a|sleep 60||1|0 => 301|Script execution error: abnormal termination)");
  EXPECT_TRUE(agent.TempFolderIsEmpty());
}

TEST(Scripts, OfAHelperAreGivenUpAfterEightSeconds) {
  const Agent agent("cpuusagescript=@/cpu.sh\nproccntscript=@/none\nproclistscript=@/none\n");
  agent.Write("cpu.sh", "#!/bin/sh\nsleep 60\n");
  const Stopwatch watch;
  agent.Expect("TEST-CPU", "301|Cannot execute script");
  EXPECT_GT(watch.Seconds(), 8);
  EXPECT_LT(watch.Seconds(), Sanitized() ? 48 : 12);
  EXPECT_TRUE(WaitFor([&] { return Children(agent.pid).empty(); })) << "no child and no zombie stays";
  std::filesystem::remove(agent.At("@/cpu.sh"));
  agent.ExpectRows("", R"(
    TEST-CPU => 301|CPUUsage script doesn't exist
    TEST-Process||one => 301|ProcCnt script doesn't exist
    GetProcessesList => 301|ProcList script doesn't exist)");
}

}  // namespace
