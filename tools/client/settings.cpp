#include "client/settings.h"

#include <arpa/inet.h>
#include <ctype.h>
#include <string.h>

#include <algorithm>

#include "client/text.h"
#include "config/ipfilter.h"
#include "protocol/tav_const.h"

namespace {

constexpr size_t kMaxValue = 960;  // a line of the agent's file holds 1023 bytes, key and line end included

bool IsWire(const TSettingKey& key, const char* name) {
  return key.wire != nullptr && strcmp(key.wire, name) == 0;
}

bool Refuse(const std::string& name, const std::string& value, const std::string& why, TFailure& failure) {
  return Fail(failure, TKind::kUsage, name + ": '" + Visible(value) + "' " + why, "nothing was sent");
}

bool CheckFlag(const std::string& name, const std::string& given, std::string& sent, TFailure& failure) {
  const std::string word = Lower(given);
  const bool on = word == "1" || word == "on" || word == "yes" || word == "true";
  const bool off = word == "0" || word == "off" || word == "no" || word == "false";
  sent = on ? "1" : "0";
  return on || off || Refuse(name, given, "is neither on nor off", failure);
}

// A time-out may come as "4s", though the agent counts milliseconds.
std::string InMilliseconds(const std::string& given) {
  double seconds = 0;
  const bool unit = !given.empty() && isalpha(static_cast<unsigned char>(given.back())) != 0;
  if (!unit || !ParseSeconds(given, seconds)) return given;
  return std::to_string(static_cast<long long>(seconds * 1000));
}

bool CheckNumber(const TSettingKey& key, const std::string& given, std::string& sent, TFailure& failure) {
  long long number = 0;
  int port = 0;
  sent = IsWire(key, "Timeout") ? InMilliseconds(given) : given;
  if (IsWire(key, "Port"))
    return ParsePort(given, port) || Refuse(NameOf(key), given, "is no port from 1 to 65535", failure);
  const bool good = ParseNumber(sent, number) && number >= 0 && number <= 0x7FFFFFFF && given[0] != ' ';
  return good || Refuse(NameOf(key), given, "is no number from 0 to 2147483647", failure);
}

// Items as IPAllowed reads them: each an address, or two with a hyphen between.
bool CheckAddressList(const TSettingKey& key, const std::string& given, TFailure& failure) {
  for (const char c : given)
    if (!islistsetchar(c))
      return Refuse(NameOf(key), given,
                    std::string("holds '") + Visible(std::string(1, c)) + "'; addresses are parted by commas alone",
                    failure);
  String work = ToString(given);
  for (in_addr_t from = 1, to = 0; from != 0;) {
    String error;
    getitem(work, from, to, error);
    if (error.Length() != 0) return Refuse(NameOf(key), given, "holds something that is no address", failure);
  }
  return true;
}

// Addresses parted by blanks or commas go out as lines.
bool CheckFilter(const TSettingKey& key, const std::string& given, std::string& sent, TFailure& failure) {
  std::string lines;
  for (size_t at = 0; (at = given.find_first_not_of(" ,\t\r\n", at)) != std::string::npos;) {
    size_t end = given.find_first_of(" ,\t\r\n", at);
    if (end == std::string::npos) end = given.size();
    const std::string item = given.substr(at, end - at);
    in_addr address{};
    if (inet_pton(AF_INET, item.c_str(), &address) != 1)
      return Refuse(NameOf(key), item, "is no IPv4 address", failure);
    lines += (lines.empty() ? "" : "\r\n") + item;
    at = end;
  }
  const String encoded = tavEncodeStrings(ToString(lines));
  sent = Bytes(encoded);
  return true;
}

bool CheckText(const TSettingKey& key, const std::string& given, TFailure& failure) {
  if (IsWire(key, "IPFilterMarks") && given.find_first_not_of("01") != std::string::npos)
    return Refuse(NameOf(key), given, "is no row of 0s and 1s", failure);
  if (IsWire(key, "Password") && given.empty())
    return Fail(failure, TKind::kUsage, "the new password is empty", "an agent does not start without one");
  if (given.size() > kMaxValue) return Fail(failure, TKind::kUsage, NameOf(key) + ": the value is too long", "");
  TParams ends;  // what holds for parameters holds here: one line, and no ends that the agent would cut off
  ends.Text(1, given);
  return ends.Finish(failure);
}

}  // namespace

TChange::~TChange() {
  explicit_bzero(value.data(), value.size());
}

const std::vector<const TSettingKey*>& ReportedKeys() {
  static const std::vector<const TSettingKey*> keys = [] {
    std::vector<const TSettingKey*> found;
    for (const TReport report : {TReport::kInfo, TReport::kManagement, TReport::kTests, TReport::kActions})
      for (int place = 1; const TSettingKey* key = FindSettingByReport(report, place); ++place)
        found.push_back(key);
    return found;
  }();
  return keys;
}

const TSettingKey* FindSetting(const std::string& name) {
  const std::string wanted = Lower(name);
  for (const TSettingKey& key : kSettingKeys) {
    const bool byKey = key.key != nullptr && wanted == key.key;
    const bool byWire = key.wire != nullptr && wanted == Lower(key.wire);
    if (byKey || byWire) return &key;
  }
  return nullptr;
}

std::string NameOf(const TSettingKey& key) {
  return key.key != nullptr ? key.key : key.wire;
}
bool IsSecret(const TSettingKey& key) {
  return IsWire(key, "Password");
}

namespace {

const TSwitch* FindSwitch(const TAgentInfo& info, const std::string& name) {
  for (const auto* list : {&info.tests, &info.actions})
    for (const TSwitch& one : *list)
      if (one.name == name) return &one;
  return nullptr;
}

}  // namespace

bool FetchSettings(const TAgent& agent, TReported& settings, TFailure& failure) {
  TAgentInfo info;
  if (!AskInfo(agent, "GetSettings", info, failure)) return false;
  for (const TSettingKey* key : ReportedKeys()) {
    const TSwitch* one = FindSwitch(info, key->wire);
    if (one == nullptr && !info.Has(key->wire)) continue;
    settings.keys.insert(key);
    std::string value = one != nullptr ? BoolConst[one->on] : info.Value(key->wire);
    TakeRemoteValue(settings.values, *key, ToString(value));
    explicit_bzero(value.data(), value.size());
  }
  return true;
}

bool UnknownSetting(const std::string& name, TFailure& failure) {
  std::vector<std::string> names;
  for (const TSettingKey& key : kSettingKeys)
    if (key.key != nullptr) names.emplace_back(key.key);
  const std::string near = Nearest(Lower(name), names);
  return Fail(failure, TKind::kUsage, "unknown setting '" + Visible(name) + "'",
              near.empty() ? "'settings get' lists the names" : "did you mean '" + near + "'?");
}

std::string FileText(const TTAVSettings& settings, const TSettingKey& key) {
  return Bytes(FileValue(settings, key));
}

bool CheckValue(const TSettingKey& key, const std::string& given, std::string& sent, TFailure& failure) {
  sent = given;
  switch (key.kind) {
    case TSettingKind::kFlag:
      return CheckFlag(NameOf(key), given, sent, failure);
    case TSettingKind::kNumber:
      return CheckNumber(key, given, sent, failure);
    case TSettingKind::kAddresses:
      return CheckFilter(key, given, sent, failure);
    case TSettingKind::kText:
      break;
  }
  if (IsWire(key, "ManageAddr") || IsWire(key, "UpdateAddr")) return CheckAddressList(key, given, failure);
  return CheckText(key, given, failure);
}

bool ParseChange(const std::string& assignment, bool temporary, TChange& change, TFailure& failure) {
  const size_t equals = assignment.find('=');
  if (equals == std::string::npos)
    return Fail(failure, TKind::kUsage, "'" + Visible(assignment) + "' is not NAME=VALUE",
                "'settings get' lists the names");
  const std::string name = Trimmed(assignment.substr(0, equals));
  change.key = FindSetting(name);
  if (change.key == nullptr) return UnknownSetting(name, failure);
  if (IsSecret(*change.key))
    return Fail(failure, TKind::kUsage, "a password does not belong on the command line",
                "put it into a file and give --new-password-file FILE");
  if (!change.key->settable)
    return Fail(failure, TKind::kUsage, "'" + NameOf(*change.key) + "' cannot be set from afar",
                "change it in the agent's configuration file and use 'reload'");
  if (change.key->saving != TSaving::kAlways && !temporary)
    return Fail(failure, TKind::kUsage, "the agent would not save '" + NameOf(*change.key) + "'",
                "with --temporary it is set until the agent loads its file again");
  return CheckValue(*change.key, Trimmed(assignment.substr(equals + 1)), change.value, failure);
}

namespace {

// The entries of the list with their marks, as far as there are both.
std::vector<std::string> Entries(const TTAVSettings& settings) {
  std::vector<std::string> entries;
  for (const std::string& line : SplitLines(Bytes(settings.filterlist)))
    if (const std::string entry = Trimmed(line); !entry.empty()) entries.push_back(entry);
  return entries;
}

}  // namespace

std::string FilterOddity(const TTAVSettings& settings) {
  const size_t entries = Entries(settings).size();
  const auto marks = static_cast<size_t>(settings.filtermarks.Length());
  if (!settings.filteractive || entries == marks) return "";
  return "filtermarks has " + std::to_string(marks) + " marks for " + std::to_string(entries) +
         " addresses of filterlist";
}

std::vector<std::string> ActiveEntries(const TTAVSettings& settings) {
  std::vector<std::string> active;
  const std::vector<std::string> entries = Entries(settings);
  const std::string marks = Bytes(settings.filtermarks);
  for (size_t i = 0; i < std::min(entries.size(), marks.size()); ++i)
    if (marks[i] == '1') active.push_back(entries[i]);
  return active;
}

std::vector<std::string> Lockouts(const TTAVSettings& settings, const std::string& own) {
  std::vector<std::string> lockouts;
  if (!settings.allowmanage) lockouts.emplace_back("allowmanage=0 takes away this command, too");
  in_addr address{};
  if (inet_pton(AF_INET, own.c_str(), &address) != 1) return lockouts;
  std::string active = "\r\n";
  for (const std::string& entry : ActiveEntries(settings)) active += entry + "\r\n";
  if (settings.filteractive && !PassesFilter(address, ToString(active)))
    lockouts.push_back("the address filter shuts out your own address, " + own);
  String error;
  if (!IPAllowed(address, settings.manageaddr, error))
    lockouts.push_back("manageaddr leaves out your own address, " + own +
                       ", for this and the other management commands");
  return lockouts;
}
