#include "client/target.h"

#include <algorithm>
#include <sstream>

#include "client/inputfiles.h"
#include "client/text.h"

namespace {

constexpr long long kMaxHosts = 16 * 1024 * 1024;  // bytes

}  // namespace

bool ParseTarget(const std::string& text, int port, TTarget& target) {
  target.port = port;
  std::string rest;
  if (text[0] == '[') {
    const size_t close = text.find(']');
    if (close == std::string::npos) return false;
    target.host = text.substr(1, close - 1);
    rest = text.substr(close + 1);
  } else {
    // More than one colon is an address of the new kind, bare.
    const bool bare = std::count(text.begin(), text.end(), ':') > 1;
    const size_t colon = bare ? std::string::npos : text.find(':');
    target.host = text.substr(0, colon);
    if (colon != std::string::npos) rest = text.substr(colon);
  }
  if (target.host.empty() || target.host.find_first_of(" \t") != std::string::npos) return false;
  if (rest.empty()) return port != 0;
  return rest[0] == ':' && ParsePort(rest.substr(1), target.port);
}

bool ReadHosts(const std::string& path, int port, std::vector<TTarget>& targets, TFailure& failure) {
  std::string text;
  if (!ReadInput(path, kMaxHosts, text, failure)) return false;
  std::istringstream file(text);
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) {
    const std::string entry = Trimmed(line.substr(0, line.find('#')));
    if (entry.empty()) continue;
    TTarget target;
    if (!ParseTarget(entry, port, target))
      return Fail(failure, TKind::kInput,
                  path + ":" + std::to_string(number) + ": '" + Visible(entry) + "' is no host",
                  "write host or host:port, one a line; without a port there, give -p");
    targets.push_back(target);
  }
  return !targets.empty() || Fail(failure, TKind::kInput, "'" + path + "' names no host", "write one host a line");
}
