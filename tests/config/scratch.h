// A folder of its own for each test, with the configuration file in it; the master settings begin empty.
#pragma once

#include <gtest/gtest.h>

#include <array>

#include "config/settings_keys.h"
#include "protocol/twofish.h"
#include "tests/scratch.h"

using Rows = std::vector<std::array<std::string, 3>>;

class Config : public testing::Test {
 protected:
  Config() {
    Twofish_initialise();
    master = TTAVSettings();
    path.copy(master.cfgfile, sizeof master.cfgfile - 1);
  }

  // Loads or saves, over `text` if there is one.
  std::string Do(int (*work)(String&), const std::string& text = "-") {
    if (text != "-") std::ofstream(path) << text;
    String message("left over");
    const int done = work(message);
    return (done ? "ok|" : "|") + Std(message);
  }
  std::string Read() { return ReadFile(path); }
  std::string InForce(const std::string& name) {
    const TSettingKey* key = FindSettingKey(name.c_str());
    return Std(RemoteValue(*SettingsInForce(), key ? *key : *FindSettingByWireName(name.c_str())));
  }

  TTAVSettings& master = TAVSettings;  // touched while no other thread runs
  const TTree tree;
  const std::string path = tree.path + "tav.cfg";
};
