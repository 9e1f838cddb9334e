#include "checks/scripttests.h"

#include <sys/stat.h>

#include <fstream>

#include "config/settings.h"
#include "tests/checks/replies.h"
#include "tests/core/own_temp_folder.h"

namespace {

using THandler = void (*)(const BVRequest&, TAVReply&);

// The temporary folder has a blank and a quote in its name.
class ScriptTests : public OwnTempFolder {
 protected:
  ScriptTests() : helper(In("helper")) {
    EXPECT_EQ(0, mkdir(In("it's here").c_str(), 0700));
    SetTempDirectory(In("it's here").c_str());
    TLock lock(optmutex);
    TAVSettings.process = TAVSettings.cpuusage = TAVSettings.external = TAVSettings.shellscript = 1;
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
  const struct {
    THandler handler;
    std::string script, parameters, answer;
  } rows[] = {
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
  for (const auto& row : rows) {
    EXPECT_EQ(row.answer, AskHelper(row.handler, row.script, row.parameters)) << row.script << row.parameters;
  }
}

}  // namespace
