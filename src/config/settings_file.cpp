#include "config/settings_file.h"

#include <string.h>

#include "config/replacement.h"
#include "config/settings.h"
#include "config/settings_keys.h"

namespace {

// A changed line with the NUL that ends it; CR LF may follow in the line's buffer.
constexpr int kLongestSavedLine = 1021;

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

// Puts the setting's value over the one in the line, as far as the line's buffer goes.  A text ends the line behind
// itself, an empty one leaves the old value; of a switch only the first byte is replaced.
void OverwriteValue(const TTAVSettings& settings, const TSettingKey& key, char* line, char* value) {
  const int offset = static_cast<int>(value - line);
  String text = FileValue(settings, key);
  if (key.kind == TSettingKind::kFlag) {
    if (offset > kSettingsLineSize - 2) return;
    if (*value == '\0') value[1] = '\0';
    *value = text[1];
  } else if (key.kind == TSettingKind::kNumber) {
    if (text.Length() < kSettingsLineSize - offset) text.StrCpy(value, -1);
  } else if (offset < kLongestSavedLine) {
    text.StrCpy(value, kLongestSavedLine - offset);
  }
}

void WriteLine(TReplacement& file, const char* line) {
  const int length = static_cast<int>(strlen(line));
  file.Write(line, length);
  if (length == 0 || line[length - 1] != '\n') file.Write("\r\n", 2);
}

// How much of a line can be added without a later piece of it, as lines are read, being taken for a setting.
int HarmlessLength(const String& line) {
  constexpr int kPiece = kSettingsLineSize - 1;
  char piece[kSettingsLineSize];
  for (int start = kPiece; start < line.Length(); start += kPiece) {
    String part = line.Copy(start + 1, kPiece), key;
    const bool taken = SplitSettingsLine(part.StrCpy(piece, -1), key) != nullptr && FindSettingKey(key) != nullptr;
    explicit_bzero(piece, sizeof piece);
    if (taken) return start;
  }
  return line.Length();
}

void AddLine(TReplacement& file, const TTAVSettings& settings, const TSettingKey& key) {
  const String line = String(key.key) + "=" + FileValue(settings, key);
  file.Write(line.Data(), HarmlessLength(line));
  file.Write("\r\n", 2);
}

// The old file's lines with the settings put in, then the settings that had none.
void Rewrite(TSettingsFile& old, TReplacement& file, const TTAVSettings& settings) {
  bool written[kSettingCount] = {};
  while (char* line = old.NextLine()) {
    String name;
    char* value = SplitSettingsLine(line, name);
    const TSettingKey* key = value == nullptr ? nullptr : FindSettingKey(name);
    if (key != nullptr && key->saving != TSaving::kNever) {
      OverwriteValue(settings, *key, line, value);
      written[key - kSettingKeys] = true;
    }
    WriteLine(file, line);
  }
  for (const TSettingKey& key : kSettingKeys) {
    if (key.saving == TSaving::kAlways && !written[&key - kSettingKeys]) AddLine(file, settings, key);
  }
}

int Refuse(String& message, const char* what, const String& name) {
  message = String(what) + " configuration file '" + name + "'";
  return 0;
}

}  // namespace

char* SplitSettingsLine(char* line, String& key) {
  if (line[0] == '#' || line[0] == ';') return nullptr;
  char* equals = strchr(line, '=');
  if (equals == nullptr) return nullptr;

  const char *begin = line, *end = equals;
  while (begin < end && IsBlank(*begin)) ++begin;
  while (end > begin && IsBlank(end[-1])) --end;
  key.CopyData(begin, static_cast<int>(end - begin));
  key.LowerCase();

  char* value = equals + 1;
  while (IsBlank(*value)) ++value;
  return value;
}

String SettingsLineValue(const char* value) {
  size_t length = strlen(value);
  while (length > 0 && strchr(" \t\r\n", value[length - 1]) != nullptr) --length;
  return String(value, static_cast<int>(length));
}

TSettingsFile::~TSettingsFile() {
  explicit_bzero(block, sizeof block);
  explicit_bzero(line, sizeof line);
}

bool TSettingsFile::Fill() {
  const long long n = file.Read(block, sizeof block);
  failed = n < 0;
  next = 0;
  filled = n < 0 ? 0 : static_cast<int>(n);
  return filled > 0;
}

char* TSettingsFile::NextLine() {
  int length = 0;
  while (length < kSettingsLineSize - 1) {
    if (next == filled && (failed || !Fill())) break;
    line[length++] = block[next++];
    if (line[length - 1] == '\n') break;
  }
  if (length == 0 || failed) return nullptr;
  line[length] = '\0';
  return line;
}

bool TTAVSettings::ReadFile(String& message) {
  message = "";
  ResetSettings(*this);
  if (cfgfile[0] == '\0') {
    message = "Configuration file is not specified";
    return false;
  }
  TSettingsFile file;
  if (!file.Open(cfgfile)) return Refuse(message, "Cannot open", cfgfile);

  while (char* line = file.NextLine()) {
    String name;
    const char* text = SplitSettingsLine(line, name);
    const TSettingKey* key = text == nullptr ? nullptr : FindSettingKey(name);
    if (key == nullptr) continue;
    String value = SettingsLineValue(text);
    TakeFileValue(*this, *key, value);
  }
  if (file.Failed()) return Refuse(message, "Cannot open", cfgfile);

  PutRight(message);
  if (timeout == 0) timeout = kDefaultTimeout;
  return true;
}

int TTAVSettings::SaveOptions_(String& message) {
  message = "";
  PutRight(message);
  if (cfgfile[0] == '\0') {
    message = "Configuration file is not specified";
    return 0;
  }
  TSettingsFile old;
  if (!old.Open(cfgfile)) return Refuse(message, "Cannot open", cfgfile);

  TReplacement file(cfgfile);
  if (!file.Create(old.Input())) return Refuse(message, "Cannot create new", file.NewName());

  Rewrite(old, file, *this);
  if (old.Failed()) return Refuse(message, "Cannot open", cfgfile);
  if (!file.Finish()) return Refuse(message, "Cannot create new", file.NewName());
  if (!file.Install(old.Input())) return Refuse(message, "Cannot overwrite", cfgfile);
  return 1;
}
