#include "config/settings_keys.h"

#include <stdio.h>

#include "protocol/tav_const.h"

namespace {

using S = TTAVSettings;
constexpr TSettingKind Flag = TSettingKind::kFlag, Number = TSettingKind::kNumber, Text = TSettingKind::kText,
                       Addresses = TSettingKind::kAddresses;
constexpr TSaving Never = TSaving::kNever, InPlace = TSaving::kInPlace, Always = TSaving::kAlways;
constexpr TReport None = TReport::kNone, Info = TReport::kInfo, Tests = TReport::kTests,
                  Actions = TReport::kActions, Manage = TReport::kManagement;

// A NUL ends a line of the file, and a line break would start a setting of its own.
String OnOneLine(const String& text) {
  String line;
  line.Reserve(text.Length());
  for (int i = 1; i <= text.Length() && text[i] != 0; ++i) {
    if (text[i] == '\r' && i < text.Length() && text[i + 1] == '\n') continue;
    line.AddChar(text[i] == '\r' || text[i] == '\n' ? ' ' : text[i]);
  }
  return line;
}

// Addresses stand in the file with blanks between them.  A line end that closes the list is left by ReplaceAll, and
// may stay: it only closes the line.
String AddressesOnOneLine(const String& list) {
  const String blanks = list.ReplaceAll("\r\n", " ", 1);
  const int end = blanks.Length() - 2;
  if (end < 0 || blanks[end + 1] != '\r' || blanks[end + 2] != '\n') return OnOneLine(blanks);
  return OnOneLine(blanks.Copy(1, end)) + "\r\n";
}

// In a buffer of its own: in the old one the end of a longer password would outlive it.
void SetText(String& field, const String& value) {
  field = String(value);
}

String NumberText(int number) {
  char text[16];
  snprintf(text, sizeof text, "%d", number);
  return String(text);
}

}  // namespace

// The reset values of filtermarks and filterlist look exchanged; they are what every installation starts from.
// freespace is never added to a file, so that without a line there it lasts until the next load.
const TSettingKey kSettingKeys[] = {
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

const TSettingKey* FindSettingKey(const String& key) {
  for (const TSettingKey& row : kSettingKeys) {
    if (row.key != nullptr && key == row.key) return &row;
  }
  return nullptr;
}

const TSettingKey* FindSettingByWireName(const String& name) {
  for (const TSettingKey& row : kSettingKeys) {
    if (row.wire != nullptr && name == row.wire) return &row;
  }
  return nullptr;
}

const TSettingKey* FindSettingByReport(TReport report, int place) {
  for (const TSettingKey& row : kSettingKeys) {
    if (row.report == report && row.place == place) return &row;
  }
  return nullptr;
}

void ResetSettings(TTAVSettings& settings) {
  for (const TSettingKey& row : kSettingKeys) {
    if (row.reset == nullptr) continue;
    if (row.field.text != nullptr) {
      SetText(settings.*row.field.text, row.reset);
    } else {
      settings.*row.field.number = tavDecodeInt(row.reset);
    }
  }
}

void TakeFileValue(TTAVSettings& settings, const TSettingKey& key, const String& value) {
  if (key.field.number == &S::port && settings.port != 0) return;
  if (key.kind == TSettingKind::kFlag) {
    settings.*key.field.number = value.Length() > 0 && value[1] == '1';
  } else if (key.kind == TSettingKind::kAddresses) {
    settings.*key.field.text = tavDecodeStrings(value).Trim().RemoveRepeats(' ').ReplaceAll(" ", "\r\n", 1);
  } else {
    TakeRemoteValue(settings, key, value);
  }
}

void TakeRemoteValue(TTAVSettings& settings, const TSettingKey& key, const String& value) {
  switch (key.kind) {
    case TSettingKind::kFlag:
      settings.*key.field.number = tavDecodeBool(value);
      break;
    case TSettingKind::kNumber:
      settings.*key.field.number = tavDecodeInt(value);
      break;
    case TSettingKind::kText:
      SetText(settings.*key.field.text, value);
      break;
    case TSettingKind::kAddresses:
      settings.*key.field.text = tavDecodeStrings(value);
      break;
  }
}

String FileValue(const TTAVSettings& settings, const TSettingKey& key) {
  if (key.kind == TSettingKind::kText) return OnOneLine(settings.*key.field.text);
  if (key.kind == TSettingKind::kAddresses) return AddressesOnOneLine(settings.*key.field.text);
  return RemoteValue(settings, key);
}

String RemoteValue(const TTAVSettings& settings, const TSettingKey& key) {
  if (key.field.text != nullptr) return settings.*key.field.text;
  const int number = settings.*key.field.number;
  return key.kind == TSettingKind::kFlag ? String(BoolConst[number != 0]) : NumberText(number);
}
