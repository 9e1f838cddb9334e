// A test that works in a temporary folder of its own, and must leave neither a file there nor a child behind.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "core/tempdir.h"

class OwnTempFolder : public testing::Test {
 protected:
  OwnTempFolder() {
    EXPECT_NE(nullptr, mkdtemp(folder));
    SetTempDirectory(folder);
  }
  ~OwnTempFolder() override {
    SetTempDirectory(nullptr);
    EXPECT_EQ(0, rmdir(folder)) << "a file was left behind";
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)) << "a child was left behind";
  }
  std::string In(const std::string& name) { return std::string(folder) + "/" + name; }

  char folder[32] = "/tmp/tav-test-XXXXXX";
};
