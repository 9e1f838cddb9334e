#include "tavctl/configinit.h"

#include <errno.h>
#include <string.h>
#include <sys/random.h>

#include <map>
#include <set>

#include "config/settings_keys.h"

namespace {

constexpr int kPasswordLength = 24;

struct TSampleRow {
  const char* comment;  // null: none
  const char* key;
  const char* value;  // null: what a load starts from
};

constexpr TSampleRow kRows[] = {
    {"The agent's own program, with its full path; an upgrade replaces it.", "tavpath", ""},
    {"Where it listens: an address of this host and a TCP port.  This one serves this host alone; put its own\n"
     "# address here, or nothing for all of them, when a server is to reach it.",
     "host", "127.0.0.1"},
    {nullptr, "port", "1055"},
    {"What a server must know to be answered.", "password", ""},
    {"Milliseconds after which a silent connection is closed.", "timeout", "4000"},
    {"Told to the server.", "comment", ""},
    {"Folder for temporary files, which nobody else should write to, and the file for the process id of a daemon.",
     "tmpdir", ""},
    {nullptr, "pidfile", ""},
    {"oklogfile tells of connections taken, badlogfile of those that the filter turned away, of unknown commands\n"
     "# and of the agent's own troubles.  Wrong passwords stand in neither: of them only verboselogfile tells, "
     "which\n"
     "# an agent started with -v fills with every message (-vd adds why).",
     "logsuccess", "0"},
    {nullptr, "oklogfile", ""},
    {nullptr, "logfails", "1"},
    {nullptr, "badlogfile", ""},
    {nullptr, "verboselogfile", ""},
    {"Who may connect at all, when filteractive is 1: addresses parted by blanks, and in filtermarks one "
     "character\n"
     "# an address, in the same order and without blanks between them: 1 is in force, 0 is not.",
     "filteractive", "0"},
    {nullptr, "filterlist", "127.0.0.1"},
    {nullptr, "filtermarks", "1"},
    {"Who may change settings, restart and stop the agent: addresses and ranges, parted by commas.", "allowmanage",
     "1"},
    {nullptr, "manageaddr", "127.0.0.1"},
    {"Who may replace its program.", "allowupdates", "0"},
    {nullptr, "updateaddr", "127.0.0.1"},
    {"Scripts that count and list processes and measure the load; bare names lie beside the program.",
     "proccntscript", ""},
    {nullptr, "proclistscript", ""},
    {nullptr, "cpuusagescript", ""},
    {"Microseconds to wait before a script is started.", "delayforscripts", nullptr},
    {"Actions: programs, network data and syslog messages that a server may order.", "executeaction", "0"},
    {nullptr, "tcpudpaction", "0"},
    {nullptr, "syslogaction", "0"},
    {"Programs and scripts that a server may run as tests; off until you need them.", "external", "0"},
    {nullptr, "shellscript", "0"},
};

// What only this host tells; empty for every other key.
std::string PlaceOf(const std::string& key, const TPlaces& places) {
  const std::map<std::string, std::string> found = {
      {"tavpath", places.program},
      {"tmpdir", places.tmpdir},
      {"pidfile", places.pidfile},
      {"oklogfile", places.logs + "/ok.log"},
      {"badlogfile", places.logs + "/bad.log"},
      {"verboselogfile", places.logs + "/verbose.log"},
      {"proccntscript", places.scripts.empty() ? "" : places.scripts + "/proccnt.sh"},
      {"proclistscript", places.scripts.empty() ? "" : places.scripts + "/proclist.sh"},
      {"cpuusagescript", places.scripts.empty() ? "" : places.scripts + "/cpuusage.sh"},
  };
  const auto place = found.find(key);
  return place == found.end() ? "" : place->second;
}

// A test whose script is not there is off.
std::string TestValue(const TSettingKey& key, const TPlaces& places) {
  const bool needsScript = strcmp(key.key, "process") == 0 || strcmp(key.key, "cpuusage") == 0;
  if (needsScript && places.scripts.empty()) return "0";
  return key.reset != nullptr ? key.reset : "";
}

}  // namespace

std::string SampleConfig(const String& password, const TPlaces& places) {
  std::string text =
      "# Configuration of the tav agent: a key=value a line, and nothing behind the value.  Keep it readable for "
      "its\n"
      "# owner alone: chmod 600.\n";
  std::set<std::string> written;
  for (const TSampleRow& row : kRows) {
    const std::string key = row.key;
    std::string value = PlaceOf(key, places);
    if (value.empty()) value = row.value != nullptr ? row.value : FindSettingKey(row.key)->reset;
    if (row.comment != nullptr) text += std::string("\n# ") + row.comment + "\n";
    text += key + "=" + value;
    if (key == "password") text.append(password.Data(), static_cast<size_t>(password.Length()));
    text += "\n";
    written.insert(key);
  }
  text += "\n# Tests, each on (1) or off (0).\n";
  for (const TSettingKey& key : kSettingKeys)
    if (key.key != nullptr && written.count(key.key) == 0)
      text += std::string(key.key) + "=" + TestValue(key, places) + "\n";
  return text;
}

bool RandomPassword(String& password, TFailure& failure) {
  static const char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  constexpr unsigned kCount = sizeof kLetters - 1;
  while (password.Length() < kPasswordLength) {
    unsigned char byte = 0;
    const ssize_t got = getrandom(&byte, 1, 0);
    if (got < 0 && errno != EINTR)
      return Fail(failure, TKind::kInternal, std::string("getrandom: ") + strerror(errno));
    // Bytes beyond the last whole multiple would favour the first letters.
    if (got == 1 && byte < 256 / kCount * kCount) password.AddChar(kLetters[byte % kCount]);
  }
  return true;
}
