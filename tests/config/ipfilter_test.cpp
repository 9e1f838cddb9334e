#include "config/ipfilter.h"

#include <gtest/gtest.h>

namespace {

TEST(IPAllowed, TakesSinglesAndRangesEitherWayRound) {
  const std::tuple<const char*, const char*, int, const char*> rows[] = {
      {"127.0.0.1", "127.0.0.1", 1, ""},
      {"10.0.0.50-10.0.0.1", "10.0.0.1", 1, ""},
      {"10.0.0.50-10.0.0.1", "10.0.0.50", 1, ""},
      {"10.0.0.50-10.0.0.1", "10.0.0.51", 0, ""},
      {"10.0.0.1-10.0.0.50", "10.0.0.1", 1, ""},
      {"10.0.0.1-10.0.0.50", "10.0.0.50", 1, ""},
      {"10.0.0.1, 10.0.0.2", "10.0.0.2", 1, "Illegal character ( ) specified"},
      {"10.0.0.1 10.0.0.2", "10.0.0.1", 0, "Invalid IP address (10.0.0.110.0.0.2) specified"},  // they run together
      {"abc", "10.0.0.1", 0, "Illegal character (a) specified"},
      {"", "10.0.0.1", 0, ""},
      {"9.9.9.999,10.0.0.1", "10.0.0.1", 0, "Invalid IP address (9.9.9.999) specified"},  // the scan ends there
      {"10.0.0.1,9.9.9.999", "10.0.0.1", 1, ""},                                          // or before it
      {"10.0.0.3-9.9.9.999,10.0.0.9", "10.0.0.9", 1, "Invalid IP address (9.9.9.999) specified"},
      {"10.0.0.1-10.0.0.3-10.0.0.9", "10.0.0.9", 1, ""},
      {"10.0.0.1-", "10.0.0.1", 1, ""},
      {",-,10.0.0.1", "10.0.0.1", 1, ""},
      {"255.255.255.255", "255.255.255.254", 0, "Invalid IP address (255.255.255.255) specified"},
  };
  for (const auto& [list, peer, allowed, says] : rows) {
    String error("old");
    EXPECT_EQ(allowed, IPAllowed(peer, list, error)) << peer << " in " << list;
    EXPECT_STREQ(says, error.CStr()) << list;
  }
  String error;
  EXPECT_EQ(0, IPAllowed("255.255.255.255", "0.0.0.1-255.255.255.254", error));
}

}  // namespace
