#include "client/target.h"

#include <errno.h>
#include <string.h>

#include <fstream>

#include "client/text.h"

bool ParseTarget(const std::string& text, int port, TTarget& target) {
  target.port = port;
  std::string rest;
  if (text[0] == '[') {
    const size_t close = text.find(']');
    if (close == std::string::npos) return false;
    target.host = text.substr(1, close - 1);
    rest = text.substr(close + 1);
  } else {
    const size_t colon = text.find(':');
    target.host = text.substr(0, colon);
    if (colon != std::string::npos) rest = text.substr(colon);
  }
  if (target.host.empty() || target.host.find_first_of(" \t") != std::string::npos) return false;
  if (rest.empty()) return port != 0;
  return rest[0] == ':' && ParsePort(rest.substr(1), target.port);
}

bool ReadHosts(const std::string& path, int port, std::vector<TTarget>& targets, TFailure& failure) {
  std::ifstream file(path);
  if (!file) return Fail(failure, TKind::kInput, "cannot open '" + path + "': " + strerror(errno));
  std::string line;
  for (int number = 1; std::getline(file, line); ++number) {
    const std::string text = Trimmed(line.substr(0, line.find('#')));
    if (text.empty()) continue;
    TTarget target;
    if (!ParseTarget(text, port, target))
      return Fail(failure, TKind::kInput,
                  path + ":" + std::to_string(number) + ": '" + Visible(text) + "' is no host",
                  "write host or host:port, one a line; without a port there, give -p");
    targets.push_back(target);
  }
  return !targets.empty() || Fail(failure, TKind::kInput, "'" + path + "' names no host", "write one host a line");
}
