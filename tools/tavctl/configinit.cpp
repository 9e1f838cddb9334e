#include "tavctl/configinit.h"

#include <errno.h>
#include <string.h>
#include <sys/random.h>

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
    {"Where it listens: an address of this host (empty: all of them) and a TCP port.", "host", ""},
    {nullptr, "port", "1055"},
    {"What a server must know to be answered.", "password", ""},
    {"Milliseconds after which a silent connection is closed.", "timeout", "4000"},
    {"Told to the server.", "comment", ""},
    {"Folder for temporary files, and the file for the process id of a daemon.", "tmpdir", "/tmp"},
    {nullptr, "pidfile", "/run/tav.pid"},
    {"Logs of answered and of refused requests; bare names lie beside this file.", "logsuccess", "0"},
    {nullptr, "oklogfile", "log1.txt"},
    {nullptr, "logfails", "1"},
    {nullptr, "badlogfile", "log2.txt"},
    {nullptr, "verboselogfile", ""},
    {"Who may connect at all: addresses parted by blanks, and a 1 or 0 for each.", "filteractive", "0"},
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

}  // namespace

std::string SampleConfig(const String& password, const std::string& tavpath) {
  std::string text =
      "# Configuration of the tav agent: a key=value a line.  Keep it readable for its owner alone: chmod 600.\n";
  std::set<std::string> written;
  for (const TSampleRow& row : kRows) {
    const std::string key = row.key;
    std::string value = row.value != nullptr ? row.value : "";
    if (row.value == nullptr) value = FindSettingKey(row.key)->reset;
    if (key == "tavpath") value = tavpath;
    if (key == "password") value.assign(password.Data(), static_cast<size_t>(password.Length()));
    if (row.comment != nullptr) text += std::string("\n# ") + row.comment + "\n";
    text += key + "=" + value + "\n";
    if (key == "password") explicit_bzero(value.data(), value.size());
    written.insert(key);
  }
  text += "\n# Tests, each on (1) or off (0).\n";
  for (const TSettingKey& key : kSettingKeys)
    if (key.key != nullptr && written.count(key.key) == 0)
      text += std::string(key.key) + "=" + (key.reset != nullptr ? key.reset : "") + "\n";
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
