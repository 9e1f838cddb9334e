#include "tavctl/configcheck.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>

#include "client/secrets.h"
#include "client/settings.h"
#include "client/text.h"
#include "config/settings_file.h"
#include "tavctl/configrisks.h"

namespace {

// What is known of the file while it is looked at.
struct TCheck {
  std::vector<TFinding>& findings;
  std::map<std::string, int> lines;  // where each key stands first
  std::string tmpdir;                // as the file has it

  int LineOf(const std::string& key) const {
    const auto found = lines.find(key);
    return found == lines.end() ? 1 : found->second;
  }
  void Warn(int line, const std::string& text) { findings.push_back({line, false, text}); }
  void Error(int line, const std::string& text) { findings.push_back({line, true, text}); }
};

bool HoldsComment(const std::string& value) {
  for (const char* mark : {" #", "\t#", " ;", "\t;"})
    if (value.find(mark) != std::string::npos) return true;
  return false;
}

void CheckValueAt(const TSettingKey& key, const std::string& value, int line, TCheck& check) {
  const std::string name = key.key, shown = name + (IsSecret(key) ? "" : "=" + Visible(value));
  long long number = 0;
  if (HoldsComment(value))
    check.Warn(line, shown + ": what looks like a comment belongs to the value");
  else if (key.kind == TSettingKind::kFlag && value != "0" && value != "1")
    check.Warn(line, shown + " is neither 0 nor 1; it counts as " + (value[0] == '1' ? "on" : "off"));
  else if (key.kind == TSettingKind::kNumber && !ParseNumber(value, number))
    check.Warn(line, shown + " is no number; it counts as " + std::to_string(atoi(value.c_str())));
}

void CheckLine(char* text, int line, TCheck& check) {
  const std::string whole = Trimmed(text);
  String keyText;
  const char* valueAt = SplitSettingsLine(text, keyText);
  if (valueAt == nullptr) {
    const bool comment = text[0] == '#' || text[0] == ';';
    if (!comment && !whole.empty()) check.Warn(line, "the line holds no '=' and is ignored");
    return;
  }
  const std::string name = Bytes(keyText), value = Bytes(SettingsLineValue(valueAt));
  const TSettingKey* key = FindSettingKey(keyText);
  if (key == nullptr) return check.Warn(line, "unknown key '" + Visible(name) + "' is ignored");
  const auto [first, isNew] = check.lines.emplace(name, line);
  if (!isNew)
    check.Warn(line, "'" + name + "' stands in line " + std::to_string(first->second) + " already; " +
                         (name == "port" ? "the first one" : "the last one") + " counts");
  if (name == "tmpdir") check.tmpdir = value;
  CheckValueAt(*key, value, line, check);
}

void CheckLines(TSettingsFile& file, TCheck& check) {
  int line = 1;
  for (bool begins = true; char* text = file.NextLine();) {
    const size_t length = strlen(text);
    const bool ends = length > 0 && text[length - 1] == '\n';
    if (!ends && length + 1 >= kSettingsLineSize && begins)
      check.Warn(line, "the line is longer than 1023 bytes; its rest counts as a line of its own");
    CheckLine(text, line, check);
    begins = ends;
    if (ends) ++line;
  }
}

void CheckRights(TSettingsFile& file, const std::string& path, TCheck& check) {
  struct stat info {};
  if (fstat(file.Input().Descriptor(), &info) != 0) return;
  const std::string fault = RightsFault(info, path);
  if (!fault.empty()) check.Error(1, "the file holds the password and " + fault + "; chmod 600");
}

// What an agent does not start with.
void CheckNeeds(const TTAVSettings& settings, bool usable, TCheck& check) {
  const size_t before = check.findings.size();
  const auto isAbsolute = settings.tavpath.Length() > 0 && settings.tavpath[1] == '/';
  const std::string path = Bytes(settings.tavpath);
  struct stat info {};
  const int port = settings.port;
  const int line = check.LineOf("port");
  if (port == 0) check.Error(line, "port= is missing or 0; a port from 1 to 65535 is needed");
  if (port < 0 || port > 65535) check.Error(line, "port=" + std::to_string(port) + " is no port");
  if (settings.password.Length() == 0) check.Error(check.LineOf("password"), "password= is missing or empty");
  if (!isAbsolute)
    check.Error(check.LineOf("tavpath"), "tavpath=" + path + " is not the full path of the agent's program");
  else if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
    check.Error(check.LineOf("tavpath"), "tavpath=" + path + " is no file");
  if (!usable && check.findings.size() == before) check.Error(1, "the agent would not start with it");
}

// The load puts a missing folder right, so the line itself must be looked at.
void CheckTempFolder(TCheck& check) {
  struct stat info {};
  const int line = check.LineOf("tmpdir");
  const std::string shown = "tmpdir=" + Visible(check.tmpdir);
  if (check.tmpdir.empty()) return;
  if (stat(check.tmpdir.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
    check.Warn(line, shown + " is no folder; the agent falls back to TMPDIR, TMP or its own folder");
  else if ((info.st_mode & S_IWOTH) != 0)
    check.Warn(line, shown + " can be written by everybody; a folder of the agent's own is safer");
}

}  // namespace

bool CheckConfig(const std::string& path, std::vector<TFinding>& findings, int& port, TFailure& failure) {
  TSettingsFile file;
  TTAVSettings settings;
  if (path.size() >= sizeof settings.cfgfile || !file.Open(path.c_str()))
    return Fail(failure, TKind::kInput, "cannot open '" + path + "': " + strerror(errno));
  TCheck check{findings, {}, ""};
  CheckRights(file, path, check);
  CheckLines(file, check);
  if (file.Failed()) return Fail(failure, TKind::kInput, "cannot read '" + path + "' to its end");
  memcpy(settings.cfgfile, path.c_str(), path.size() + 1);
  String message;
  const bool usable = settings.LoadOptions_(message) != 0;
  port = settings.port;
  CheckNeeds(settings, usable, check);
  CheckTempFolder(check);
  for (const TRisk& risk : FindRisks(settings)) check.Warn(check.LineOf(risk.key), risk.text);
  std::stable_sort(findings.begin(), findings.end(),
                   [](const TFinding& a, const TFinding& b) { return a.line < b.line; });
  return true;
}
