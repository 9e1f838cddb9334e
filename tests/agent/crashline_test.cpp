#include "agent/crashline.h"

#include <gtest/gtest.h>
#include <time.h>

#include <string>

namespace {

std::string Text(const TCrashLine& line) {
  return std::string(line.Data(), line.Size());
}

TEST(CrashLine, ShowsTheTimeAsTheCLibraryDoes) {
  constexpr long kLastSecond = 4133980799;  // of the year 2100, which is no leap year
  for (long seconds = 0; seconds <= kLastSecond; seconds += 86399 * 7L) {
    const time_t now = seconds;
    tm utc = {};
    gmtime_r(&now, &utc);
    char console[64], log[64];
    strftime(console, sizeof console, "[tav][%H:%M:%S]\t tav\t\t Restarting..\n", &utc);
    strftime(log, sizeof log, "[%m/%d/%Y %H:%M:%S]\t tav\t\t Restarting..\n", &utc);
    ASSERT_EQ(console, Text(ConsoleLine(seconds, "Restarting..\n")));
    ASSERT_EQ(log, Text(LogLine(seconds, "Restarting..\n")));
  }
}

TEST(CrashLine, LeavesOutWhatDoesNotFit) {
  EXPECT_EQ(160u, LogLine(0, std::string(500, 'x').c_str()).Size());
}

}  // namespace
