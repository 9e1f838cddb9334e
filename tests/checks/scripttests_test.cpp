#include "checks/scripttests.h"

#include <sys/stat.h>

#include <fstream>
#include <random>
#include <vector>

#include "checks/helperscripts.h"
#include "config/settings.h"
#include "core/cmdline_expand.h"
#include "core/cmdline_split.h"
#include "tests/checks/replies.h"
#include "tests/core/own_temp_folder.h"

namespace {

// The temporary folder has a blank and a quote in its name.
class ScriptTests : public OwnTempFolder {
 protected:
  ScriptTests() : helper(In("helper")) {
    EXPECT_EQ(0, mkdir(In("it's here").c_str(), 0700));
    SetTempDirectory(In("it's here").c_str());
    TLock lock(optmutex);
    TAVSettings.proccntscript = TAVSettings.proclistscript = TAVSettings.cpuusagescript = helper.c_str();
    TAVSettings.delayforscripts = -1;
    PublishSettings();
  }
  ~ScriptTests() override {
    unlink(helper.c_str());
    EXPECT_EQ(0, rmdir(In("it's here").c_str())) << "a file was left behind";
  }
  std::string AskHelper(THandler handler, const std::string& script, const std::string& parameters = "") {
    std::ofstream(helper) << "#!/bin/sh\n" << script;
    chmod(helper.c_str(), 0700);
    return ReplyOf(handler, parameters);
  }

  const std::string helper;
};

TEST_F(ScriptTests, TakeWhatTheHelperPrints) {
  const std::string line(600, 'x');
  const std::tuple<THandler, std::string, std::string, std::string> rows[] = {
      {ProcessTest_Process, "echo \" $# of\"; exit 1", "\na b\n", "200\n2\n"},
      {ProcessTest_Process, "echo one", "\na >&2; echo 7\n", "200\n7\n"},
      {ProcessTest_Process, "echo 1 >&2", "\na # b\n", "301\nCannot get script results"},
      {ProcessTest_Process, "echo 1", "\n\n", "501\nName of the process is not specified"},
      {ProcessTest_Process, "", "\na\n", "301\nScript error"},
      {ProcessTest_CPU, "echo load >&2", "", "301\nScript error"},
      {ProcessTest_CPU, "read x || echo 12.345678 %", "", "200\n12.3457\n"},
      {ProcessTest_CPU, "kill -9 $$", "", "301\nCannot execute script"},
      {ProcessInfo_ProcessesList, "echo a; echo b >&2; echo; echo c", "", "200\na%0D%0Ab%0D%0Ac%0D%0Ac%0D%0A\n"},
      {ProcessInfo_ProcessesList, "printf 'a\\n\\0b\\nc'", "", "200\na%0D%0Ac%0D%0A\n"},
      {ProcessInfo_ProcessesList, "printf " + line, "",
       "200\n" + line.substr(0, 511) + "%0D%0A" + line.substr(511) + "%0D%0A\n"},
  };
  for (const auto& [handler, script, parameters, answer] : rows)
    EXPECT_EQ(answer, AskHelper(handler, script, parameters)) << script << parameters;
}

TEST_F(ScriptTests, ServerScriptsAnswerTheirResultLine) {
  const std::string wholeLine = "200\nscriptres:\n" + std::string(511, '0') + "%0D%0Ascriptres:%0D%0Aa%0D%0A\n";
  const std::pair<const char*, const char*> rows[] = {
      {"sh \"%SCRIPT%\" %params%\necho $2%0D%0Aecho ScriptRes:$1%0D%0Aecho c >&2\nx y\n5\n2\n",
       "200\nScriptRes:x\ny%0D%0AScriptRes:x%0D%0A\n"},
      {"sh \"%script%\" \necho a; echo; echo ' b '\n\n\n\n", "200\nb\n\n"},
      {"sh \"%script%\" \n\n\n0\n1\n", "200\n\n\n"},
      {"sh \"%script%\" \nsleep 30\n\n-1\n0\n", "301\nScript execution error: abnormal termination"},
      {"sh \"%script%\" \nyes x | head -c 60000000; echo scriptres:1; echo y\n\n0\n0\n", "200\nscriptres:1\n\n"},
      {"sh \"%script%\" \nprintf '%0511dscriptres:\\na\\0b\\n' 0\n\n0\n3\n", wholeLine.c_str()},
      {"%script%\n\n\n0\n0\n",
       "301\nScript execution error: exec error: No such file or directory"},  // not replaced
  };
  for (const auto& row : rows) EXPECT_EQ(row.second, ReplyOf(ProcessTest_ShellScript, row.first)) << row.first;
}

std::string Split(String line) {
  TArguments arguments;
  SplitCommandLine(line.CStr(), arguments);
  std::string all;
  for (int i = 0; i < arguments.count; i++) all += std::string(arguments.argv[i]) + "|";
  return all;
}

TEST(ScriptCommandLine, GivesTheArgumentsOfTheWholeExpansion) {
  std::mt19937 random(7);
  // Pieces of the marks, quotes, and blanks and words of lengths near the bounds.
  std::vector<std::string> parts = {"%script%", "%params%", "%SCRIPT%", "%Params%", "%par", "ams%", "%"};
  for (const char c : std::string("a'\"\t \0", 6)) parts.emplace_back(1, c);
  for (const size_t blanks : {500, 1024, 1500}) parts.emplace_back(blanks, ' ');
  parts.emplace_back(300, 'x');
  const auto text = [&](unsigned long most) {
    std::string all;
    const unsigned long used = 1 + random() % 16;  // some texts have few kinds of parts
    for (unsigned long n = random() % (most + 1); n > 0; n--)
      all += parts[(random() % used + n % 2 * 5) % parts.size()];
    return all;
  };
  for (int round = 0; round < 20000; round++) {
    const std::string scripts[] = {"./tmp-1", "/t ' s/tmp-1", "/%params%/tmp-1", "ams%/tmp-1", "%params/tmp-1"};
    const std::string line = text(static_cast<unsigned long>(round) % 50), &script = scripts[random() % 5],
                      params = text(random() % 12).c_str();
    const String plain =
        Bytes(line).ReplaceAll("%script%", script.c_str(), 0).ReplaceAll("%params%", params.c_str(), 0);
    const String expanded = ExpandCommandLine(Bytes(line), script.c_str(), params.c_str());
    ASSERT_EQ(Split(plain), Split(expanded)) << line + "\n" + script + "\n" + params;
  }
}

TEST(ScriptCommandLine, IsNoLongerThanCanBeUsed) {
  String scripts, marks;
  for (int n = 0; n < 40000; n++) marks += "%params%", scripts += "%script%";
  const std::string path = "/" + std::string(500, ' ') + "s";
  EXPECT_LT(ExpandCommandLine(scripts, path.c_str(), "").Length(), 30000);
  for (const char c : {'x', ' '}) {
    const std::string params(100000, c), after = c == ' ' ? Std(marks) : "";
    EXPECT_LT(ExpandCommandLine(marks, "/s", params.c_str()).Length(), 30000);
    EXPECT_EQ("/s|last|", Split(ExpandCommandLine(Bytes("%script%" + after + " last"), "/s", params.c_str())));
  }
}

}  // namespace
