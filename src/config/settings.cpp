#include "config/settings.h"

#include <atomic>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "core/paths.h"
#include "core/tempdir.h"

TMutex optmutex;
TTAVSettings TAVSettings;

namespace {

// The keys of one password, prepared when they are first asked for: the first load comes before the cipher is set
// up, and preparing costs more than all the rest of a change.
class TKeysOnDemand {
 public:
  explicit TKeysOnDemand(const String& text) : password(text) {}
  TKeysOnDemand(const TKeysOnDemand&) = delete;
  TKeysOnDemand& operator=(const TKeysOnDemand&) = delete;

  bool For(const String& text) const { return password == text; }
  TPasswordKeysPtr Get() {
    // Not std::call_once: where memory is short, an exception would have to pass through the C library.
    TPasswordKeysPtr known = std::atomic_load(&keys);
    if (known != nullptr) return known;
    TPasswordKeysPtr fresh = std::make_shared<const TPasswordKeys>(password);
    return std::atomic_compare_exchange_strong(&keys, &known, fresh) ? fresh : known;
  }

 private:
  String password;
  TPasswordKeysPtr keys;
};

// Readers hold on to what they got, so what is replaced goes when its last reader does.
struct TPublished {
  TTAVSettings settings;
  std::shared_ptr<TKeysOnDemand> keys;
};
using TPublishedPtr = std::shared_ptr<const TPublished>;

// A password that stays keeps its keys.
TPublishedPtr Prepare(const TTAVSettings& settings, const TPublished* last) {
  const auto next = std::make_shared<TPublished>();
  next->settings = settings;
  const bool samePassword = last != nullptr && last->keys->For(settings.password);
  next->keys = samePassword ? last->keys : std::make_shared<TKeysOnDemand>(settings.password);
  return next;
}

// Read and replaced whole, with the atomic operations for shared pointers.  Never destroyed: sessions may be
// running when the process ends.
TPublishedPtr& Published() {
  static TPublishedPtr* const published = new TPublishedPtr(Prepare(TTAVSettings(), nullptr));
  return *published;
}

std::atomic<void (*)()> tellOfChange{[] {}};

// A lone word for a script names a file in the agent's own folder.
void PrefixScript(String& script, const String& folder) {
  if (script.Length() > 0 && ExtractFilePath(script).Length() == 0) script = folder + "/" + script;
}

// The next line of a list without the blanks around it, in one pass over the list.
String NextEntry(const String& list, int& position) {
  const int begin = position;
  while (position <= list.Length() && list[position] != '\n') ++position;
  return list.Copy(begin, position++ - begin).Trim();
}

void BuildActiveFilter(TTAVSettings& settings, String& message) {
  settings.activefilter = "\r\n";
  int position = 1;
  for (int i = 1; i <= settings.filtermarks.Length(); ++i) {
    const String entry = NextEntry(settings.filterlist, position);
    if (entry.Length() == 0) {
      message = "FilterMarks has less items than FilterList";
      return;
    }
    if (settings.filtermarks[i] != '1') continue;
    settings.activefilter += entry;
    settings.activefilter += "\r\n";
  }
}

// Temporary files and children follow the setting; without a usable one the environment decides.
void PutTempDirectoryRight(String& tmpdir) {
  if (!DirectoryExists(tmpdir.CStr())) {
    String chosen;
    tmpdir = TempDirectory(chosen) && DirectoryExists(chosen.CStr()) ? chosen : String(".");
  }
  tmpdir = ExcludeTrailingPathDelimiter(tmpdir);
  SetTempDirectory(tmpdir.CStr());
}

// Every problem is told, not only the first.
int Check(TTAVSettings& settings, String& message) {
  const char* path = settings.tavpath.CStr();
  const bool absolute = path[0] == '/';
  const struct {
    bool wrong;
    const char* text;
  } checks[] = {
      {settings.port == 0, "  TCP post is not specified!\n"},
      {settings.password.Length() == 0, "  Password is not specified!\n"},
      {!absolute, "  Full path to the agent is not specified!\n"},
      {absolute && !FileExists(path), "  Invalid path to the agent!\n"},
  };
  int usable = 1;
  for (const auto& check : checks) {
    if (!check.wrong) continue;
    message += check.text;
    usable = 0;
  }
  return usable;
}

}  // namespace

TTAVSettings::TTAVSettings() = default;

int TTAVSettings::LoadOptions(String& message) {
  TLock lock(optmutex);
  TTAVSettings aside(TAVSettings);
  if (!aside.ReadFile(message)) return 0;

  const int usable = Check(aside, message);
  PublishSettings(std::move(aside));
  return usable;
}

int TTAVSettings::SaveOptions(String& message) {
  TLock lock(optmutex);
  const int saved = TAVSettings.SaveOptions_(message);
  PublishSettings();
  return saved;
}

bool TTAVSettings::ReplacePort(int unusable, int port) {
  if (!optmutex.TryLock()) return false;
  TLock lock(optmutex, TLocked{});
  try {
    if (TAVSettings.port == unusable) TAVSettings.port = port;
    PublishSettings();
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

int TTAVSettings::LoadOptions_(String& message) {
  return ReadFile(message) ? Check(*this, message) : 0;
}

void TTAVSettings::PutRight(String& message) {
  BuildActiveFilter(*this, message);
  const String folder = ExtractFilePath(tavpath);
  for (String* path : {&cpuusagescript, &proclistscript, &proccntscript}) {
    if (folder.Length() > 0) PrefixScript(*path, folder);
  }
  PutTempDirectoryRight(tmpdir);
}

void WhenSettingsChange(void (*tell)()) {
  tellOfChange = tell;
}

TSettingsPtr SettingsInForce() {
  const TPublishedPtr published = std::atomic_load(&Published());
  return TSettingsPtr(published, &published->settings);
}

TPasswordKeysPtr PasswordInForce() {
  return std::atomic_load(&Published())->keys->Get();
}

void PublishSettings() {
  const TPublishedPtr last = std::atomic_load(&Published());
  std::atomic_store(&Published(), Prepare(TAVSettings, last.get()));
  tellOfChange.load()();
}

void PublishSettings(TTAVSettings next) {
  static_assert(std::is_nothrow_move_assignable_v<TTAVSettings>);
  const TPublishedPtr last = std::atomic_load(&Published());
  TPublishedPtr prepared = Prepare(next, last.get());
  TAVSettings = std::move(next);
  std::atomic_store(&Published(), std::move(prepared));
  tellOfChange.load()();
}
