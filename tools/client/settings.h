// An agent's settings as a settings object of our own, filled and read through the agent's key table.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "client/agentinfo.h"
#include "config/settings.h"
#include "config/settings_keys.h"

// The keys that an agent of our version reports, in the order of its reports.
const std::vector<const TSettingKey*>& ReportedKeys();

// By key or by the server's name, letter case ignored; null when there is none.
const TSettingKey* FindSetting(const std::string& name);
// Says so, and which name was probably meant; returns false.
bool UnknownSetting(const std::string& name, TFailure& failure);
// What it is called: its key, or the server's name for what is not in the file.
std::string NameOf(const TSettingKey& key);
bool IsSecret(const TSettingKey& key);

// What an agent says of its settings.  An older one does not report all that ours does.
struct TReported {
  TTAVSettings values;
  std::set<const TSettingKey*> keys;  // that it has reported

  bool Has(const TSettingKey& key) const { return keys.count(&key) != 0; }
};

// Asks with "GetSettings" and takes every reported value.
bool FetchSettings(const TAgent& agent, TReported& settings, TFailure& failure);

// A value as the configuration file holds it.
std::string FileText(const TTAVSettings& settings, const TSettingKey& key);

// One NAME=VALUE that was checked and is ready to be sent.
struct TChange {
  const TSettingKey* key = nullptr;
  std::string value;  // as "SetSettings" takes it, line breaks encoded

  TChange() = default;
  TChange(const TChange&) = default;
  TChange& operator=(const TChange&) = default;
  ~TChange();  // wipes: it may be the new password
};

// Checks form and range; refuses names that cannot be set, and, unless `temporary`, those that no save writes.
bool ParseChange(const std::string& assignment, bool temporary, TChange& change, TFailure& failure);
// Checks the value of one setting and brings it into the form that is sent.
bool CheckValue(const TSettingKey& key, const std::string& given, std::string& sent, TFailure& failure);
// What is odd about the address filter; empty when nothing is.
std::string FilterOddity(const TTAVSettings& settings);
// The addresses that the filter has in force.
std::vector<std::string> ActiveEntries(const TTAVSettings& settings);
// Why somebody at the address `own`, as the agent sees it, could no longer do this and other management commands.
std::vector<std::string> Lockouts(const TTAVSettings& settings, const std::string& own);
