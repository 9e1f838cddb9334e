#include "actions/extcommand.h"

#include <gtest/gtest.h>

#include "config/settings.h"

namespace {

std::string Act(const char* parameters, int allowed = 1) {
  {
    TLock lock(optmutex);
    TAVSettings.executeaction = allowed;
    PublishSettings();
  }
  TAVReply reply;
  ProcessAct_ExternalCmd(BVRequest(String(parameters)), reply);
  return std::string(reply.Text().Data(), static_cast<size_t>(reply.Length()));
}

TEST(ExternalCmd, AnswersTheExitCodeOrWhyNot) {
  const std::pair<const char*, const char*> rows[] = {
      {"sh -c 'exit 3'\n\n0\n0\n", "200\n3\n"},
      {"sh -c 'pwd | grep -qx /proc'\n/proc\n0\n0\n", "200\n0\n"},
      {"true\n/no/such/folder\n0\n0\n", "200\n0\n"},
      {"sh -c 'kill -9 $$'\n\n0\n0\n", "301\nabnormal termination"},
      {"true\n\nx\n0\n", "501\nWrong parameter"},
      {"true\n\n0\n1s\n", "501\nWrong parameter"},
      {" \n\n0\n0\n", "501\nCommand line to execute is not specified"},
  };
  for (const auto& row : rows) EXPECT_EQ(row.second, Act(row.first)) << row.first;
  EXPECT_EQ("600\noperation is not allowed", Act("true\n\nx\n0\n", 0));
}

}  // namespace
