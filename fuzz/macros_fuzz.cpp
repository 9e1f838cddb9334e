// A macro names the entry that a plain look at the folder finds, a wildcard its first match; what is left when a
// path is expanded is what the standard library leaves.
#include <fnmatch.h>

#include "core/filemacros.h"
#include "core/memsearch.h"
#include "core/paths.h"
#include "fuzz/law.h"

namespace fs = std::filesystem;

static std::string MakeTree() {
  static const TTree tree(kFast);
  const std::pair<const char*, time_t> rows[] = {
      {"a.log", -1000},  {"b.log", 5000000000}, {"B.txt", 1500}, {".hid", 2500}, {"old/", 0},
      {"old/x", 0},      {"old/y.y", 0},        {"old/z", 10},   {"new/", 0},    {"new/a b", 30},
      {"new/z", 20},     {"new/deep/", 0},      {"new/.x/", 60}, {"empty/", 0},  {"new/deep/%d", 5},
      {"new/deep/", 50}, {"new/", 9000},        {"old/", 100}};
  for (const auto& [name, time] : rows) tree.Add(name, "", time);
  fs::create_symlink("a.log", tree.path + "link");
  return tree.path;
}

// What a plain look finds: the newest ('n'), oldest ('o') or first ('f') entry that is no link.
static std::string Choose(const std::string& folder, const char* mask, bool folders, char which) {
  std::string best;
  long long bestTime = 0;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder, error)) {
    const std::string name = entry.path().filename();
    const long long time = FileAge(entry.path().c_str());
    if (entry.is_symlink() || entry.is_directory() != folders || fnmatch(mask, name.c_str(), 0) != 0) continue;
    if (!best.empty() && (which == 'f' || (bestTime != 0 && (which == 'n' ? time <= bestTime : time >= bestTime))))
      continue;
    best = name;
    bestTime = time;
  }
  return best;
}

// Resolves the first macro of `rest` behind what is done, and those that follow.
static bool Resolve(const std::string& done, const std::string& rest, std::string& result) {
  std::string lower = rest, macro;
  strlower(lower.data(), int(lower.size()));
  size_t at = std::string::npos;
  for (const std::string name : {"%newestfile%", "%oldestfile%", "%newestfolder%", "%oldestfolder%"})
    if (lower.find(name) < at) at = lower.find(macro = name);
  const std::string folder = done + rest.substr(0, at);
  if (macro.empty()) return result = folder, true;
  const std::string chosen = Choose(folder, "*", macro.size() == 14, macro[1]);
  return !chosen.empty() && Resolve(folder + chosen, rest.substr(at + macro.size()), result);
}

TAV_LAWS(macros)(std::string input) {
  static const std::string root = MakeTree();
  input = root + input.c_str();
  const String path = Bytes(input);
  Require(ExtractFilePath(path) + ExtractFileName(path) == path);
  // Names that begin with two dots have rules of their own, and lead out of the tree, where others work.
  if (input.find("..") != std::string::npos) return;
  // A path that ends in "/./" keeps a slash, one that holds "/.//" keeps two.
  const bool keepsSlash = input.size() > 3 && input.compare(input.size() - 3, 3, "/./") == 0;
  const String expected = ExcludeTrailingPathDelimiter(Bytes(fs::path(input).lexically_normal()));
  if (input.find(".//") == std::string::npos)
    Require(ExpandFileName(path) == (keepsSlash ? expected + "/" : expected));
  std::string resolved;
  Require(Std(GetFileUsingSpecialMacros(path)) == (Resolve("", input, resolved) ? resolved : input));
  const std::string folder = input.substr(0, input.rfind('/') + 1), mask = input.substr(folder.size());
  const std::string match = Choose(folder, mask.c_str(), false, 'f');
  Require(Std(GetFirstMatchedFile(path)) == (match.empty() ? "" : folder + match));
}
