#include "protocol/twofish.h"

#include <gtest/gtest.h>

// The vectors of the paper are proved by Twofish_initialise() itself, a peer's blocks with the bodies of packets.
TEST(TwofishDeathTest, RefusesAKeyBeforeTheTablesStand) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";  // a fresh process: nothing is initialised there
  Twofish_key key;
  EXPECT_EXIT(Twofish_prepare_key(nullptr, 0, &key), testing::ExitedWithCode(3), "was not initialised.\nProcess");
}
