#include "core/process.h"

#include <signal.h>

#include <fstream>
#include <iterator>

#include "core/clock.h"
#include "tests/core/own_temp_folder.h"

namespace {

class Process : public OwnTempFolder {
 protected:
  std::string Run(const std::string& command, int timeout = 0) {
    String error;
    const std::string file = In("out");
    int code = -1;
    const int done =
        SystemEx2(command.c_str(), "/", file.c_str(), file.c_str(), file.c_str(), timeout, code, error);
    std::ifstream stream(file);
    output.assign(std::istreambuf_iterator<char>(stream), {});
    unlink(file.c_str());
    return done ? std::to_string(code) : error.CStr();
  }

  std::string output;
};

TEST_F(Process, AnswersHowAChildEnded) {
  const std::pair<const char*, const char*> rows[] = {
      {"sh -c 'exit 3'", "3"},
      {"sh -c 'exit 255'", "255"},  // no note, so its own
      {"sh -c 'kill -TERM $$'", "abnormal termination"},
      {"no-such-program", "exec error: No such file or directory"},
      {"/etc", "exec error: Permission denied"},
      {"", "exec error: No such file or directory"},
      {"sh -c 'echo told > $TMPDIR/tmpStav-$$.txt; exit 255'", "told"},
  };
  for (const auto& row : rows) EXPECT_EQ(row.second, Run(row.first)) << row.first;

  const char* othersNote = "sh -c 'f=$TMPDIR/tmpStav-$$.txt; >$f; chown 65534 $f; exit 255'";
  EXPECT_TRUE(geteuid() != 0 || Run(othersNote) == "255");
  (void)!system(("rm -f " + In("tmpStav*")).c_str());
  SetTempDirectory(".");  // the child leaves this folder before it writes its note
  EXPECT_EQ("exec error: No such file or directory", Run("/nowhere/at/all"));
}

TEST_F(Process, LooksAtTheTimeoutOnceASecond) {
  const std::tuple<int, const char*, const char*, int, int> rows[] = {
      {0, "sleep 0.2", "0", 200, 900},  // the end is noticed at once
      {999, "sleep 30", "abnormal termination", 1000, 1900},
      {1000, "sleep 30", "abnormal termination", 1000, 2900},  // 2000, unless whole seconds turn just then
      {2000, "sleep 30", "abnormal termination", 2010, 3900},
      {-1000, "sleep 30", "abnormal termination", 0, 900},
      {-1, "sh -c 'exit 4'", "4", 0, 900},
      {-1, "sh -c 'kill -9 $$'", "0", 0, 900},
      {-1, "/nowhere", "exec error", 0, 900},
      {-1, "sleep 1.5", "0", 1000, 1400},
  };
  for (const auto& [timeout, command, answer, atLeastMs, atMostMs] : rows) {
    const long long start = MonotonicMs();
    EXPECT_EQ(answer, Run(command, timeout)) << command << " " << timeout;
    const long long tookMs = MonotonicMs() - start;
    EXPECT_TRUE(atLeastMs <= tookMs) << command << " " << timeout << " " << tookMs;
    EXPECT_TRUE(tookMs <= atMostMs) << command << " " << timeout << " " << tookMs;
  }
  siginfo_t info;
  for (int wait = 0; wait < 500 && waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0; wait++) {
    ReapChildren();
    usleep(10000);
  }
  EXPECT_EQ(7, WEXITSTATUS(RunShell("exit 7")));
}

TEST_F(Process, KillsTheWholeGroup) {
  EXPECT_EQ("abnormal termination", Run("sh -c 'sleep 30 & echo $!; wait'", 1));
  const pid_t grandchild = atoi(output.c_str());
  ASSERT_GT(grandchild, 0);
  for (int wait = 0; wait < 500 && kill(grandchild, 0) == 0; wait++) usleep(10000);
  EXPECT_NE(0, kill(grandchild, 0));
}

TEST_F(Process, GivesAChildItsStreamsAndNothingElseOfOurs) {
  ASSERT_EQ(0, symlink(In("victim").c_str(), In("out").c_str()));
  const int open = dup(1);
  setenv("TMPDIR", "/elsewhere", 1);
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  const auto pipeAction = signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ("0", Run("sh -c 'for n in 0 1 2 3 4 5 6 7 8 9; do [ ! -e /proc/$$/fd/$n ] || echo $n; done;"
                     " echo $TMPDIR >&2; pwd; grep -cE \"Sig(Ign|Blk).*[1-9a-f]\" /proc/self/status; true'"));
  signal(SIGPIPE, pipeAction);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  close(open);
  EXPECT_EQ(std::string("1\n2\n") + folder + "\n/\n0\n", output);
  EXPECT_EQ("0", Run("env"));
  EXPECT_EQ(output.find("\nTMPDIR="), output.rfind("\nTMPDIR=")) << output;
  unsetenv("TMPDIR");
}

}  // namespace
