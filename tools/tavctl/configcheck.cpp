#include "tavctl/configcheck.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>

#include "client/reply.h"
#include "client/settings.h"
#include "client/text.h"
#include "config/settings_file.h"
#include "config/settings_keys.h"

namespace {

using TFindings = std::vector<TFinding>;

void Warn(TFindings& findings, int line, const std::string& text) {
  findings.push_back({line, false, text});
}

void CheckLineValue(const TSettingKey& key, const std::string& value, int line, TFindings& findings) {
  const std::string name = key.key;
  if (key.kind == TSettingKind::kFlag && value != "0" && value != "1")
    Warn(findings, line,
         name + "=" + value + " is neither 0 nor 1; it counts as " + (value[0] == '1' ? "on" : "off"));
  long long number = 0;
  if (key.kind == TSettingKind::kNumber && !ParseNumber(value, number))
    Warn(findings, line, name + "=" + value + " is no number; it counts as " + std::to_string(atoi(value.c_str())));
}

void CheckLine(char* text, int line, std::map<std::string, int>& seen, TFindings& findings) {
  const std::string whole = Trimmed(text);
  String keyText;
  const char* valueAt = SplitSettingsLine(text, keyText);
  if (valueAt == nullptr) {
    const bool comment = text[0] == '#' || text[0] == ';';
    if (!comment && !whole.empty()) Warn(findings, line, "the line holds no '=' and is ignored");
    return;
  }
  const std::string name = Bytes(keyText);
  const TSettingKey* key = FindSettingKey(keyText);
  if (key == nullptr) return Warn(findings, line, "unknown key '" + name + "' is ignored");
  const auto [first, isNew] = seen.emplace(name, line);
  if (!isNew)
    Warn(findings, line,
         "'" + name + "' stands in line " + std::to_string(first->second) + " already; " +
             (name == "port" ? "the first one" : "the last one") + " counts");
  if (!IsSecret(*key)) CheckLineValue(*key, Bytes(SettingsLineValue(valueAt)), line, findings);
}

void CheckLines(TSettingsFile& file, TFindings& findings) {
  std::map<std::string, int> seen;
  int line = 1;
  for (bool begins = true; char* text = file.NextLine();) {
    const size_t length = strlen(text);
    const bool ends = length > 0 && text[length - 1] == '\n';
    if (!ends && length + 1 >= kSettingsLineSize && begins)
      Warn(findings, line, "the line is longer than 1023 bytes; its rest counts as a line of its own");
    CheckLine(text, line, seen, findings);
    begins = ends;
    if (ends) ++line;
  }
}

void CheckMode(TSettingsFile& file, TFindings& findings) {
  struct stat info {};
  if (fstat(file.Input().Descriptor(), &info) != 0 || (info.st_mode & 077) == 0) return;
  findings.push_back(
      {0, true, "the file holds the password and can be read or changed by others than its owner; chmod 600"});
}

void CheckScript(const char* key, const String& path, TFindings& findings) {
  const std::string name = Bytes(path);
  if (name.empty()) return;
  if (access(name.c_str(), F_OK) != 0)
    return Warn(findings, 0, std::string(key) + ": '" + name + "' does not exist");
  if (access(name.c_str(), X_OK) != 0) Warn(findings, 0, std::string(key) + ": '" + name + "' is not executable");
}

// A bare name of a log lies beside the configuration file.
void CheckFolder(const char* key, const String& path, TFindings& findings) {
  const std::string name = Bytes(path);
  const size_t slash = name.rfind('/');
  if (slash == std::string::npos) return;
  const std::string folder = slash == 0 ? "/" : name.substr(0, slash);
  if (access(folder.c_str(), F_OK) != 0)
    Warn(findings, 0, std::string(key) + ": the folder '" + folder + "' does not exist");
}

void CheckAddresses(const TTAVSettings& settings, TFindings& findings) {
  for (const char* name : {"updateaddr", "manageaddr"}) {
    const TSettingKey* key = FindSetting(name);
    std::string sent;
    TFailure failure;
    if (!CheckValue(*key, FileText(settings, *key), sent, failure)) Warn(findings, 0, failure.text);
  }
  if (!settings.filteractive) return;
  for (const std::string& warning : Warnings(settings, "")) Warn(findings, 0, warning);
}

void CheckSettings(const std::string& path, TFindings& findings) {
  TTAVSettings settings;
  memcpy(settings.cfgfile, path.c_str(), path.size() + 1);
  String message;
  const int usable = settings.LoadOptions_(message);
  for (const std::string& line : SplitLines(Bytes(message))) {
    const bool filter = line.compare(0, 6, "Filter") == 0;  // a warning that stands by itself
    if (!filter)
      findings.push_back({0, !usable, "the agent says: " + Trimmed(line)});
    else if (settings.filteractive)
      Warn(findings, 0, "the agent says: " + Trimmed(line));
  }
  if (settings.port < 0 || settings.port > 65535)
    findings.push_back({0, true, "port=" + std::to_string(settings.port) + " is no port"});
  CheckScript("cpuusagescript", settings.cpuusagescript, findings);
  CheckScript("proclistscript", settings.proclistscript, findings);
  CheckScript("proccntscript", settings.proccntscript, findings);
  CheckFolder("pidfile", settings.pidfile, findings);
  CheckFolder("oklogfile", settings.oklogfile, findings);
  CheckFolder("badlogfile", settings.badlogfile, findings);
  CheckFolder("verboselogfile", settings.verboselogfile, findings);
  CheckAddresses(settings, findings);
}

// The load puts a missing folder right, so the line itself must be looked at.
void CheckTempFolder(const std::string& path, TFindings& findings) {
  TSettingsFile file;
  if (!file.Open(path.c_str())) return;
  std::string folder;
  while (char* text = file.NextLine()) {
    String key;
    const char* value = SplitSettingsLine(text, key);
    if (value != nullptr && key == "tmpdir") folder = Bytes(SettingsLineValue(value));
  }
  struct stat info {};
  if (!folder.empty() && (stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)))
    Warn(findings, 0,
         "tmpdir: '" + folder + "' is no folder; the agent falls back to TMPDIR, TMP or its own folder");
}

}  // namespace

bool CheckConfig(const std::string& path, TFindings& findings, TFailure& failure) {
  TSettingsFile file;
  if (path.size() >= sizeof TTAVSettings().cfgfile || !file.Open(path.c_str()))
    return Fail(failure, TKind::kInput, "cannot open '" + path + "': " + strerror(errno));
  CheckMode(file, findings);
  CheckLines(file, findings);
  if (file.Failed()) return Fail(failure, TKind::kInput, "cannot read '" + path + "' to its end");
  CheckTempFolder(path, findings);
  CheckSettings(path, findings);
  return true;
}
