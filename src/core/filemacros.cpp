#include "core/filemacros.h"

#include <string.h>

#include "core/filesearch.h"
#include "core/paths.h"

namespace {

struct TMacro {
  const char* text;
  bool newest;
  bool folders;
};

constexpr TMacro kMacros[] = {
    {"%newestfile%", true, false},
    {"%oldestfile%", false, false},
    {"%newestfolder%", true, true},
    {"%oldestfolder%", false, true},
};

const TMacro* MacroAt(const char* text) {
  for (const TMacro& macro : kMacros)
    if (strncmp(text, macro.text, strlen(macro.text)) == 0) return &macro;
  return nullptr;
}

// Time 0 means that nothing is chosen yet, so an entry of exactly that time gives way to the next one.
bool Better(const TMacro& macro, long long time, long long best) {
  if (best == 0) return true;
  return macro.newest ? time > best : time < best;
}

// Finds the name of the entry that the macro means in `dir`; empty when there is none.  Among equals the first met
// stays.  False in trouble: the entry that is meant may not have been seen.
bool ChooseEntry(const TMacro& macro, const String& dir, String& best) {
  long long bestTime = 0;
  TSearchRec rec;
  TSearchGuard guard(rec);
  for (int found = FindFirst(dir, "*", AttrAnyFile, 0, rec); found == 0; found = FindNext(rec)) {
    if (strcmp(rec.Name, ".") == 0 || strcmp(rec.Name, "..") == 0) continue;
    if (((rec.Attr & AttrDirectory) != 0) != macro.folders) continue;
    if (!CompleteRecord(rec, kNeedStat) || !Better(macro, rec.Time, bestTime)) continue;
    best = rec.Name;
    bestTime = rec.Time;
  }
  return rec.Trouble == 0;
}

}  // namespace

bool ResolveFileMacros(String& path) {
  String lower = path;
  lower.LowerCase();
  const char* text = lower.CStr();

  String result;
  int taken = 0;  // bytes of the path that are in the result
  for (int i = 0; i < path.Length(); i++) {
    const TMacro* macro = MacroAt(text + i);
    if (!macro) continue;
    result += path.Copy(taken + 1, i - taken);
    String name;
    if (!ChooseEntry(*macro, result, name)) return false;
    if (name.Length() == 0) return true;
    result += name;
    taken = i + static_cast<int>(strlen(macro->text));
    i = taken - 1;
  }
  path = result + path.Copy(taken + 1, path.Length() - taken);
  return true;
}

String GetFileUsingSpecialMacros(String path) {
  return ResolveFileMacros(path) ? path : String();
}

String GetFirstMatchedFile(const String& pathMask) {
  constexpr int kFiles = AttrAnyFile & ~AttrDirectory;
  const String dir = ExtractFilePath(pathMask);
  TSearchRec rec;
  TSearchGuard guard(rec);
  if (FindFirst(dir, ExtractFileName(pathMask), kFiles, 0, rec) != 0) return String();
  return dir + rec.Name;
}
