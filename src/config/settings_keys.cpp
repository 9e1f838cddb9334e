#include "config/settings_keys.h"

#include <stdio.h>

#include <string_view>

#include "protocol/tav_const.h"

namespace {

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

constexpr int CountOf(TReport report) {
  int count = 0;
  for (const TSettingKey& row : kSettingKeys) count += row.report == report;
  return count;
}

constexpr int RowsAt(TReport report, int place) {
  int count = 0;
  for (const TSettingKey& row : kSettingKeys) count += row.report == report && row.place == place;
  return count;
}

// FindSettingByReport() walks the places one by one, so a gap would hide all that stands behind it.
constexpr bool PlacesAreWhole(TReport report) {
  for (int place = 1; place <= CountOf(report); ++place) {
    if (RowsAt(report, place) != 1) return false;
  }
  return true;
}
static_assert(PlacesAreWhole(TReport::kInfo), "the places of the kInfo rows count from 1, each taken once");
static_assert(PlacesAreWhole(TReport::kTests), "the places of the kTests rows count from 1, each taken once");
static_assert(PlacesAreWhole(TReport::kActions), "the places of the kActions rows count from 1, each taken once");
static_assert(PlacesAreWhole(TReport::kManagement),
              "the places of the kManagement rows count from 1, each taken once");

constexpr bool SameName(const char* a, const char* b) {
  return a != nullptr && b != nullptr && std::string_view(a) == b;
}

// The first of two rows of one name would take what is meant for the other.
constexpr bool NamesAreUnique() {
  for (int i = 0; i < kSettingCount; ++i) {
    for (int j = 0; j < i; ++j) {
      const TSettingKey &row = kSettingKeys[i], &above = kSettingKeys[j];
      if (SameName(row.key, above.key) || SameName(row.wire, above.wire)) return false;
    }
  }
  return true;
}
static_assert(NamesAreUnique(), "a key, and a name that the server knows, stands in one row alone");

constexpr bool ReportsHaveNames() {
  for (const TSettingKey& row : kSettingKeys) {
    if (row.wire == nullptr && (row.settable || row.report != TReport::kNone)) return false;
  }
  return true;
}
static_assert(ReportsHaveNames(), "what the server reads or sets has a name that it knows");

}  // namespace

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
  if (key.field.number == &TTAVSettings::port && settings.port != 0) return;
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

void TTAVSettings::TerminateTexts() {
  for (const TSettingKey& row : kSettingKeys) {
    if (row.field.text != nullptr) (this->*row.field.text).SetZero();
  }
  activefilter.SetZero();
}
