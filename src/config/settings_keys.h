// The table of settings: for each its key in the configuration file, its field, the value that a load starts from,
// whether a save writes it, and the name and place that the server knows it by.
//
// Load, save, "GetInfo", "GetSettings", "SetSettings" and the command-line client all work from this one table.
// The table is constant; the functions work on their arguments alone.
#pragma once

#include <iterator>

#include "config/settings.h"
#include "core/zostring.h"

enum class TSettingKind { kFlag, kNumber, kText, kAddresses };

// kInPlace: a line that is there is overwritten, a missing one is not added.
enum class TSaving { kNever, kInPlace, kAlways };

// Where the server is told the value: a line of "GetInfo", its lists of tests and actions, a line of "GetSettings".
enum class TReport { kNone, kInfo, kTests, kActions, kManagement };

// The field behind a key: a number (kFlag, kNumber) or a text (kText, kAddresses); the other pointer is null.
struct TSettingField {
  constexpr TSettingField(int TTAVSettings::*member) : number(member) {}
  constexpr TSettingField(String TTAVSettings::*member) : text(member) {}

  int TTAVSettings::*number = nullptr;
  String TTAVSettings::*text = nullptr;
};

struct TSettingKey {
  const char* key;  // lower case; null: not in the file
  TSettingKind kind;
  TSettingField field;
  const char* reset;  // null: a load keeps the value when the file has none
  TSaving saving;
  const char* wire;  // the server's name, which is also what it shows; null: it does not know the setting
  bool settable;     // "SetSettings" takes it
  TReport report;
  int place;  // within the report, from 1
};

namespace settings_table {
using S = TTAVSettings;
constexpr TSettingKind Flag = TSettingKind::kFlag, Number = TSettingKind::kNumber, Text = TSettingKind::kText,
                       Addresses = TSettingKind::kAddresses;
constexpr TSaving Never = TSaving::kNever, InPlace = TSaving::kInPlace, Always = TSaving::kAlways;
constexpr TReport None = TReport::kNone, Info = TReport::kInfo, Tests = TReport::kTests,
                  Actions = TReport::kActions, Manage = TReport::kManagement;

// In the order in which a save adds missing lines.
// The reset values of filtermarks and filterlist look exchanged; they are what every installation starts from.
// freespace is never added to a file, so that without a line there it lasts until the next load.
inline constexpr TSettingKey kSettingKeys[] = {
    {"host", Text, &S::host, nullptr, Always, nullptr, false, None, 0},
    {"port", Number, &S::port, nullptr, Always, "Port", true, Info, 1},
    {"timeout", Number, &S::timeout, nullptr, Always, "Timeout", true, Info, 2},
    {"comment", Text, &S::comment, "", Always, "Comment", true, Info, 3},
    {"password", Text, &S::password, "", Always, "Password", true, Manage, 5},
    {"filteractive", Flag, &S::filteractive, "0", Always, "IPFiltering", true, Manage, 6},
    {"filtermarks", Text, &S::filtermarks, "127.0.0.1", Always, "IPFilterMarks", true, Manage, 8},
    {"filterlist", Addresses, &S::filterlist, "1", Always, "IPFilterAddr", true, Manage, 7},
    {"verboselogfile", Text, &S::verboselogfile, nullptr, Always, nullptr, false, None, 0},
    {"logsuccess", Flag, &S::logsuccess, "0", Always, "LogOkConn", true, Manage, 1},
    {"logfails", Flag, &S::logfails, "1", Always, "LogBadConn", true, Manage, 2},
    {"oklogfile", Text, &S::oklogfile, "log1.txt", Always, "OkLogFile", true, Manage, 3},
    {"badlogfile", Text, &S::badlogfile, "log2.txt", Always, "BadLogFile", true, Manage, 4},
    {"allowupdates", Flag, &S::allowupdates, "1", Always, "AllowUpdates", true, Manage, 9},
    {"allowmanage", Flag, &S::allowmanage, "1", Always, "AllowRManage", true, Manage, 10},
    {"updateaddr", Text, &S::updateaddr, "127.0.0.1", Always, "UpdateAddr", true, Manage, 11},
    {"manageaddr", Text, &S::manageaddr, "127.0.0.1", Always, "ManageAddr", true, Manage, 12},
    {"unc", Flag, &S::unc, "1", Always, "UNC", true, Tests, 3},
    {"freespace", Flag, &S::freespace, "1", InPlace, "Drive Space", true, None, 0},
    {"foldersize", Flag, &S::foldersize, "1", Always, "Folder Size", true, Tests, 4},
    {"countfiles", Flag, &S::countfiles, "1", Always, "Count Files", true, Tests, 5},
    {"fileexists", Flag, &S::fileexists, "1", Always, "File Availability", true, Tests, 6},
    {"filecrc", Flag, &S::filecrc, "1", Always, "File Integrity", true, Tests, 7},
    {"comparefiles", Flag, &S::comparefiles, "1", Always, "File Compare", true, Tests, 8},
    {"process", Flag, &S::process, "1", Always, "Process", true, Tests, 10},
    {"cpuusage", Flag, &S::cpuusage, "1", Always, "CPU Usage", true, Tests, 11},
    {"script", Flag, &S::script, "1", Always, "Script", true, None, 0},
    {"external", Flag, &S::external, "1", Always, "External", true, Tests, 12},
    {"ping", Flag, &S::ping, "1", Always, "Ping", true, None, 0},
    {"tcp", Flag, &S::tcp, "1", Always, "TCP", true, Tests, 1},
    {"udp", Flag, &S::udp, "1", Always, "UDP", true, Tests, 2},
    {"textlog", Flag, &S::textlog, "1", Always, "Text Log", true, Tests, 9},
    {"shellscript", Flag, &S::shellscript, "1", Always, "Shell Script", false, Tests, 13},
    {"executeaction", Flag, &S::executeaction, "0", Always, "Execute external command", true, Actions, 1},
    {"tcpudpaction", Flag, &S::tcpudpaction, "0", Always, "TCP/UDP send", true, Actions, 2},
    {"syslogaction", Flag, &S::syslogaction, "0", Always, "Syslog", true, Actions, 3},
    // The administrator's alone.
    {"tavpath", Text, &S::tavpath, "", Never, nullptr, false, None, 0},
    {"tmpdir", Text, &S::tmpdir, nullptr, Never, nullptr, false, None, 0},
    {"pidfile", Text, &S::pidfile, "", Never, nullptr, false, None, 0},
    {"delayforscripts", Number, &S::delayforscripts, "90000", Never, nullptr, false, None, 0},
    {"cpuusagescript", Text, &S::cpuusagescript, nullptr, Never, nullptr, false, None, 0},
    {"proclistscript", Text, &S::proclistscript, nullptr, Never, nullptr, false, None, 0},
    {"proccntscript", Text, &S::proccntscript, nullptr, Never, nullptr, false, None, 0},
    // In memory only.
    {nullptr, Flag, &S::service, "0", Never, "Service", true, None, 0},
    {nullptr, Flag, &S::ntlog, "0", Never, "NT Event Log", true, None, 0},
    {nullptr, Flag, &S::perfcounter, "0", Never, "Perf Counter", true, None, 0},
    {nullptr, Flag, &S::snmp, "1", Never, "SNMP", true, None, 0},
    {nullptr, Flag, &S::spareflag, "0", Never, nullptr, false, None, 0},
};
}  // namespace settings_table

using settings_table::kSettingKeys;
inline constexpr int kSettingCount = static_cast<int>(std::size(kSettingKeys));

// By lower-case key or by exact wire name; null when there is none.
const TSettingKey* FindSettingKey(const String& key);
const TSettingKey* FindSettingByWireName(const String& name);
// Null behind the report's last place.
const TSettingKey* FindSettingByReport(TReport report, int place);

// Sets every field that has a reset value to it.
void ResetSettings(TTAVSettings& settings);
// Takes a value as it stands in the file.  A port is taken only while there is none: the first one wins.
void TakeFileValue(TTAVSettings& settings, const TSettingKey& key, const String& value);
// Takes a value as "SetSettings" sends it.
void TakeRemoteValue(TTAVSettings& settings, const TSettingKey& key, const String& value);
// The value as a save writes it, on one line.
String FileValue(const TTAVSettings& settings, const TSettingKey& key);
// The value as replies carry it, before line breaks are encoded.
String RemoteValue(const TTAVSettings& settings, const TSettingKey& key);
