// The table of settings: for each its key in the configuration file, its field, the value that a load starts from,
// whether a save writes it, and the name and place that the server knows it by.
//
// Load, save, "GetInfo", "GetSettings", "SetSettings" and the command-line client all work from this one table.
// The table is constant; the functions work on their arguments alone.
#pragma once

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

inline constexpr int kSettingCount = 48;
// In the order in which a save adds missing lines.
extern const TSettingKey kSettingKeys[kSettingCount];

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
