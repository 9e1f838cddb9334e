#include "client/logstate.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "client/inputfiles.h"

#include <fmt/core.h>

namespace {

using TJson = nlohmann::ordered_json;

constexpr int kStateSchema = 1;
constexpr long long kMaxState = 1024 * 1024;
constexpr const char* kLockSuffix = ".lock";

// Lines of a log may hold any bytes, JSON may not: two hexadecimal digits for each.
std::string Hex(const std::string& bytes) {
  std::string hex;
  for (const char c : bytes) hex += fmt::format("{:02x}", static_cast<unsigned char>(c));
  return hex;
}

std::string Unhex(const std::string& hex) {
  std::string bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes += static_cast<char>(strtol(hex.substr(i, 2).c_str(), nullptr, 16));
  return bytes;
}

// 64-bit FNV-1a: names that differ must only not meet by chance.
unsigned long long Fnv(const std::string& text) {
  unsigned long long hash = 14695981039346656037ULL;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
  return hash;
}

bool MakeFolders(const std::string& path) {
  for (size_t at = path.find('/', 1);; at = path.find('/', at + 1)) {
    if (mkdir(path.substr(0, at).c_str(), 0700) != 0 && errno != EEXIST) return false;
    if (at == std::string::npos) return true;
  }
}

bool IsAt(int fd, const std::string& path) {
  struct stat open {
  }, named{};
  return fstat(fd, &open) == 0 && stat(path.c_str(), &named) == 0 && open.st_ino == named.st_ino &&
         open.st_dev == named.st_dev;
}

}  // namespace

std::string EncodeState(const TLogState& state, const std::string& agent) {
  TJson object = {{"schema", kStateSchema}, {"agent", agent}, {"pattern_hex", Hex(state.pattern)}};
  object["places"] = TJson::array();
  for (const TLogPlace& place : state.places)
    object["places"].push_back({{"file_hex", Hex(place.file)},
                                {"position", place.position},
                                {"size", place.size},
                                {"age", place.age},
                                {"anchor", place.anchor},
                                {"anchor_hex", Hex(place.anchorLine)}});
  return object.dump(2) + "\n";
}

bool DecodeState(const std::string& text, TLogState& state, std::string& agent) {
  const TJson object = TJson::parse(text, nullptr, false);
  if (!object.is_object()) return false;
  try {
    if (object.at("schema").get<int>() != kStateSchema) return false;
    state.pattern = Unhex(object.at("pattern_hex").get<std::string>());
    agent = object.at("agent").get<std::string>();
    for (const TJson& row : object.at("places")) {
      TLogPlace place;
      place.file = Unhex(row.at("file_hex").get<std::string>());
      place.position = row.at("position").get<long long>();
      place.size = row.at("size").get<long long>();
      place.age = row.at("age").get<long long>();
      place.anchor = row.at("anchor").get<long long>();
      place.anchorLine = Unhex(row.at("anchor_hex").get<std::string>());
      state.places.push_back(place);
    }
  } catch (const TJson::exception&) {
    return false;
  }
  return !state.places.empty();
}

TLogStateFile::~TLogStateFile() {
  if (lock.IsOpen()) (void)unlink((path + kLockSuffix).c_str());  // still ours; who waits for it looks again
}

bool TLogStateFile::Open(const std::string& file, const TTarget& target, TFailure& failure) {
  path = file;
  agent = target.Name();
  return Lock(failure);
}

bool TLogStateFile::Lock(TFailure& failure) {
  const std::string name = path + kLockSuffix;
  // The one before us may have removed the name between our opening and our locking.
  for (int tries = 0; tries < 10; ++tries) {
    TFd fd(open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!fd.IsOpen()) return Fail(failure, TKind::kInput, "cannot create '" + name + "': " + strerror(errno));
    if (flock(fd.Get(), LOCK_EX | LOCK_NB) != 0) break;
    if (!IsAt(fd.Get(), name)) continue;
    lock = std::move(fd);
    return true;
  }
  return Fail(failure, TKind::kInput, "another tavctl is at work with '" + path + "'",
              "wait for it, or use a state file each");
}

bool TLogStateFile::Load(const std::string& pattern, TLogState& state, TFailure& failure) {
  if (access(path.c_str(), F_OK) != 0 && errno == ENOENT) return true;
  std::string text, owner;
  if (!ReadInput(path, kMaxState, text, failure)) return false;
  if (!DecodeState(text, state, owner))
    return Fail(failure, TKind::kInput, "'" + path + "' is no state file of tavctl",
                "move it away; the next check then starts anew");
  if (owner == agent && state.pattern == pattern) return true;
  return Fail(failure, TKind::kInput, "'" + path + "' belongs to the log '" + state.pattern + "' of " + owner,
              "use a state file for each log");
}

bool TLogStateFile::Save(const TLogState& state, TFailure& failure) const {
  return path.empty() || WriteWhole(path, EncodeState(state, agent), 0600, failure);
}

bool DefaultStatePath(const TTarget& target, const std::string& pattern, std::string& path, TFailure& failure) {
  const char* state = getenv("XDG_STATE_HOME");
  const char* home = getenv("HOME");
  const bool named = state != nullptr && *state == '/';
  if (!named && (home == nullptr || *home != '/'))
    return Fail(failure, TKind::kUsage, "there is no place to remember the log's state", "give --state FILE");
  const std::string folder = (named ? std::string(state) : std::string(home) + "/.local/state") + "/tavctl";
  if (!MakeFolders(folder))
    return Fail(failure, TKind::kInput, "cannot create '" + folder + "': " + strerror(errno));
  path = fmt::format("{}/log-{:016x}.json", folder, Fnv(target.Name() + "\n" + pattern));
  return true;
}
