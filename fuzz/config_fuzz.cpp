// What a save writes a load reads; foreign lines survive, and no value reaches into another setting.
//
//   input := key "=" value LF file      the value, with "%0A" and "%0D" for line breaks, is set between load and
//   save
#include "config/settings_file.h"
#include "config/settings_keys.h"
#include "fuzz/law.h"
#include "protocol/tav_const.h"

static const TTree tree(kFast);
static const std::string path = tree.path + "tav.cfg";

static TTAVSettings Load() {
  TTAVSettings settings;
  String message;
  path.copy(settings.cfgfile, sizeof settings.cfgfile - 1);
  settings.LoadOptions_(message);
  return settings;
}

static std::string Save(TTAVSettings settings) {
  String message;
  Require(settings.SaveOptions_(message) == 1);
  return ReadFile(path);
}

// As a load would take it from the file: without blanks at the ends, addresses with one blank between them.
static std::string SavedValue(const TTAVSettings& settings, const TSettingKey& key) {
  String value = FileValue(settings, key);
  if (key.kind == TSettingKind::kAddresses) value.Trim().RemoveRepeats(' ');
  const std::string text = Std(SettingsLineValue(value.CStr()));
  return text.substr(std::min(text.size(), text.find_first_not_of(" \t")));
}

// The lines that a save copies, each with its end; a NUL ends what counts of one.
static std::string ForeignLines(const std::string& file, bool& hasLongLine) {
  std::string lines, line;
  for (std::istringstream in(file); std::getline(in, line);) {
    hasLongLine = hasLongLine || line.size() > 1000;
    const char* end = in.eof() || line.find('\0') != std::string::npos ? "\r\n" : "\n";
    const std::string kept = line.c_str();
    String name;
    const TSettingKey* key = SplitSettingsLine(line.data(), name) ? FindSettingKey(name) : nullptr;
    if (key == nullptr || key->saving == TSaving::kNever) lines += kept + end;
  }
  return lines;
}

TAV_LAWS(config)(std::string input) {
  std::string value = Cut(input, '\n');
  bool cut = value.size() > 900;  // what goes beyond a line is lost
  const std::string foreign = ForeignLines(input, cut);
  std::ofstream(path, std::ios::binary) << input;
  TTAVSettings settings = Load();
  const TSettingKey* changed = FindSettingKey(Bytes(Cut(value, '=')));
  if (changed != nullptr) TakeRemoteValue(settings, *changed, tavDecodeStrings(Bytes(value)));
  const std::string first = Save(settings);
  const TTAVSettings again = Load();
  for (const TSettingKey& key : kSettingKeys) {
    if (key.saving == TSaving::kNever) continue;
    const std::string wanted = SavedValue(settings, key), got = SavedValue(again, key);
    // An empty text leaves the old one, a missing "freespace" is not added, no time-out means the usual one.
    if (&key == changed && (wanted.empty() || wanted == "0" || key.saving == TSaving::kInPlace)) continue;
    Require(cut ? wanted.compare(0, got.size(), got) == 0 : wanted == got);
  }
  if (cut) return;
  const std::string kept = ForeignLines(first, cut);
  const bool addresses = changed != nullptr && changed->kind == TSettingKind::kAddresses;
  Require(kept == foreign || (addresses && kept == foreign + "\r\n"));  // a list may end in a line break of its own
  Save(again);                                                          // blanks between addresses may still shrink
  const std::string settled = Save(Load());
  Require(Save(Load()) == settled);
}
