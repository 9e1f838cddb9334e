#include "tavctl/configrisks.h"

#include <arpa/inet.h>
#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "client/settings.h"
#include "client/text.h"
#include "core/closers.h"

namespace {

using TRisks = std::vector<TRisk>;

constexpr int kShortPassword = 12;  // characters

void CheckPassword(const TTAVSettings& settings, TRisks& risks) {
  const int length = settings.password.Length();
  if (length > 0 && length < kShortPassword)
    risks.push_back({"password", "password= is shorter than " + std::to_string(kShortPassword) +
                                     " characters; who records a request can try them all"});
}

bool EverythingOn(const TTAVSettings& settings) {
  for (const TSettingKey& key : kSettingKeys) {
    const bool switches = key.report == TReport::kTests || key.report == TReport::kActions;
    if (switches && settings.*key.field.number == 0) return false;
  }
  return true;
}

void CheckSwitches(const TTAVSettings& settings, TRisks& risks) {
  if (EverythingOn(settings))
    risks.push_back({"executeaction", "every test and action is on; switch off what no server asks for"});
  const bool programs = settings.external || settings.shellscript || settings.executeaction;
  if (settings.host.Length() == 0 && programs)
    risks.push_back({"host",
                     "host= is empty, so that all addresses are listened on, while a server may have programs "
                     "run (external, shellscript or executeaction)"});
}

// Binding tells whether an address is this machine's; the port does not matter for that.
void CheckHost(const TTAVSettings& settings, TRisks& risks) {
  const std::string host = Bytes(settings.host);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  if (host.empty() || inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) return;
  const TFd probe(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const bool own = bind(probe.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  if (!own && errno == EADDRNOTAVAIL) risks.push_back({"host", "host=" + host + " is no address of this machine"});
}

bool IsAddress(const std::string& text) {
  in_addr address{};
  return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

// An address that the filter takes for the entry, because it stands in it: without its first or last digits.
std::string Admitted(const std::string& entry) {
  for (size_t from = 0; from < entry.size(); ++from)
    for (size_t size = entry.size() - from; size >= 7; --size) {
      std::string part = entry.substr(from, size);
      if (size < entry.size() && IsAddress(part)) return part;
    }
  return "";
}

void CheckFilter(const TTAVSettings& settings, TRisks& risks) {
  if (!settings.filteractive) return;
  if (const std::string odd = FilterOddity(settings); !odd.empty()) risks.push_back({"filtermarks", odd});
  bool anybody = false;
  for (const std::string& entry : ActiveEntries(settings)) {
    anybody = anybody || IsAddress(entry);
    const std::string other = Admitted(entry);
    if (!IsAddress(entry))
      risks.push_back({"filterlist", "filterlist: '" + entry + "' is no address, which fits nobody"});
    else if (!other.empty())
      risks.push_back({"filterlist", "filterlist: '" + entry + "' admits " + other +
                                         ", too, since that stands in it; a packet filter knows better"});
  }
  if (!anybody) risks.push_back({"filteractive", "filteractive=1 with no address in force lets nobody in"});
}

void CheckLists(const TTAVSettings& settings, TRisks& risks) {
  for (const char* name : {"updateaddr", "manageaddr"}) {
    const TSettingKey* key = FindSetting(name);
    std::string sent;
    TFailure failure;
    if (!CheckValue(*key, FileText(settings, *key), sent, failure)) risks.push_back({name, failure.text});
  }
}

void CheckScripts(const TTAVSettings& settings, TRisks& risks) {
  const struct {
    const char* key;
    const String& path;
    int TTAVSettings::*test;
    const char* needs;
  } rows[] = {
      {"cpuusagescript", settings.cpuusagescript, &TTAVSettings::cpuusage, "cpuusage"},
      {"proclistscript", settings.proclistscript, &TTAVSettings::process, "process"},
      {"proccntscript", settings.proccntscript, &TTAVSettings::process, "process"},
  };
  for (const auto& row : rows) {
    const std::string path = Bytes(row.path), assigned = std::string(row.key) + "=" + path;
    if (path.empty() && settings.*row.test)
      risks.push_back({row.key, std::string(row.key) + " is not set, though " + row.needs + "=1 needs it"});
    else if (!path.empty() && access(path.c_str(), F_OK) != 0)
      risks.push_back({row.key, assigned + " does not exist"});
    else if (!path.empty() && access(path.c_str(), X_OK) != 0)
      risks.push_back({row.key, assigned + " is not executable"});
  }
}

// A bare name of a log lies beside the configuration file.
void CheckFolders(const TTAVSettings& settings, TRisks& risks) {
  for (const char* name : {"pidfile", "oklogfile", "badlogfile", "verboselogfile"}) {
    const std::string path = FileText(settings, *FindSetting(name));
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) continue;
    const std::string folder = slash == 0 ? "/" : path.substr(0, slash);
    if (access(folder.c_str(), F_OK) != 0)
      risks.push_back({name, std::string(name) + "=" + path + ": there is no folder '" + folder + "'"});
  }
}

}  // namespace

std::vector<TRisk> FindRisks(const TTAVSettings& settings) {
  TRisks risks;
  for (const auto check :
       {CheckPassword, CheckSwitches, CheckHost, CheckFilter, CheckLists, CheckScripts, CheckFolders})
    check(settings, risks);
  return risks;
}
