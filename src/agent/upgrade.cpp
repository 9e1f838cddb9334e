#include "agent/upgrade.h"

#include <string.h>

#include <algorithm>
#include <utility>

#include "agent/chunks.h"
#include "agent/flags.h"
#include "config/settings.h"
#include "core/keptfile.h"
#include "core/mutex.h"
#include "core/paths.h"
#include "core/tempdir.h"
#include "protocol/md5.h"
#include "protocol/programsize.h"
#include "protocol/tav_const.h"

namespace {

constexpr mode_t kProgramBits = 0775;
constexpr int kLongestScriptFolder = 1023;

// Removes the old program, waits until it is gone, puts the new one in its place and starts it with the agent's
// arguments.
constexpr const char* kScript[] = {
    "#! /bin/sh\n"
    "oldTAV='",
    "'\n"
    "newTAV='",
    "'\n"
    "retries=10\n"
    "rm $oldTAV\n"
    "while [ -f $oldTAV ] &&  [ $retries -gt 0 ]\n"
    "do\n"
    "  retries=`expr $retries - 1`\n"
    "  echo $retries\n"
    "  sleep 1\n"
    "done\n"
    "cp -f $newTAV $oldTAV\n"
    "rm -f $newTAV\n"
    "$oldTAV $1 $2 $3 $4 $5 $6\n"
    "rm ",
    "\n",
};

// Without a temporary directory both files lie in the root directory.
String ProgramPath() {
  String folder;
  (void)TempDirectory(folder);  // none: empty, which becomes "/"
  return IncludeTrailingPathDelimiter(SafeTempFolder(folder)) + "tav__.upd";
}

String ScriptPath() {
  String folder;
  (void)TempDirectory(folder);
  return SafeTempFolder(folder).Copy(1, kLongestScriptFolder) + "/tavupd__.sh";
}

}  // namespace

// The new program on its way: the two files, the digest, and how far it has come.
class TUpgradeTransfer {
 public:
  enum class TState { kWantsMore, kFailed, kComplete };

  explicit TUpgradeTransfer(const String& key) : sessionKey(key) {}

  bool Announce(long long bytes) {
    expected = bytes;
    return bytes >= kSmallestProgram && bytes <= kLargestProgram;
  }
  int NextRead(int room) const { return NextReadSize(expected - received, room); }
  // Takes the next bytes, null when there are none yet; makes the file first.  kFailed has the reason in `error`.
  TState Feed(const char* data, int length, String& error);

  TKeptFile program;
  TKeptFile script;

 private:
  static TState Fail(String& error, const char* text) {
    error = text;
    return TState::kFailed;
  }
  bool Start();
  bool TakeProgram(const char* data, int n);
  TState Finish(const char* data, int length, String& error);
  bool DigestMatches(const char* data, int length);
  bool WriteScript(String& error);

  long long expected = 0;  // bytes of the new program
  long long received = 0;  // bytes of it written so far
  MD5Context digest;
  String sessionKey;
  const int givenUp = TimesGivenUp();  // at the beginning
};

TUpgradeTransfer::TState TUpgradeTransfer::Feed(const char* data, int length, String& error) {
  error = "";
  if (!program.Made() && !Start()) return Fail(error, "Cannot create temp file");
  if (data == nullptr) return TState::kWantsMore;
  if (givenUp != TimesGivenUp()) return Fail(error, "Write error");

  const int n = static_cast<int>(std::clamp<long long>(expected - received, 0, length));
  if (!TakeProgram(data, n)) return Fail(error, "Write error");
  return n < length ? Finish(data + n, length - n, error) : TState::kWantsMore;
}

bool TUpgradeTransfer::Start() {
  if (!program.Make(ProgramPath())) return false;
  MD5Open(&digest);
  return true;
}

bool TUpgradeTransfer::TakeProgram(const char* data, int n) {
  if (!program.Write(data, n)) return false;
  MD5Digest(&digest, data, static_cast<unsigned>(n));
  received += n;
  return true;
}

// The file is complete and `data` holds what follows it.
TUpgradeTransfer::TState TUpgradeTransfer::Finish(const char* data, int length, String& error) {
  // The digest and the script still follow a failure here, and the hand-over as well; the reply then carries this
  // text.
  if (!program.SetMode(kProgramBits) || !program.IsInPlace()) {
    program.Remove();
    error = "Cannot set exec flag new module";
  }
  if (!DigestMatches(data, length)) return Fail(error, "Wrong CRC");
  if (!WriteScript(error)) {
    if (error.Length() == 0) error = "Binary code transferred. Cannot create script file";
    return TState::kFailed;
  }
  return TState::kComplete;
}

bool TUpgradeTransfer::DigestMatches(const char* data, int length) {
  unsigned char own[kProofSize];
  MD5Close(&digest, own);
  const String sent = DecodeData(String(data, length), sessionKey);
  return sent.Length() == kProofSize && memcmp(sent.Data(), own, kProofSize) == 0;
}

bool TUpgradeTransfer::WriteScript(String& error) {
  const String path = ScriptPath();
  if (!script.Make(path)) return false;
  const String text = String(kScript[0]) + SettingsInForce()->tavpath + kScript[1] + program.Path() + kScript[2] +
                      path + kScript[3];
  if (!script.Write(text.Data(), text.Length())) return false;
  if (script.SetMode(kProgramBits)) return script.CloseForWriting();
  error = "Cannot set exec flag for script";
  return false;
}

namespace {

TMutex upgrade_mutex;  // held for these two
bool inProgress GUARDED_BY(upgrade_mutex) = false;
std::unique_ptr<TUpgradeTransfer> ready GUARDED_BY(upgrade_mutex);  // awaits its hand-over

// Gives the upgrade in progress up.  The files go first: the next upgrade has the same ones.
void BackToIdle(std::unique_ptr<TUpgradeTransfer>& upgrade) {
  if (upgrade == nullptr) return;
  upgrade = nullptr;
  TLock lock(upgrade_mutex);
  inProgress = false;
}

}  // namespace

UpgradeRec::UpgradeRec() = default;
UpgradeRec::~UpgradeRec() {
  ClearanceUpgrade();
}

bool UpgradeRec::RequestUpgrade(const String& key) {
  auto begun = std::make_unique<TUpgradeTransfer>(key);
  TLock lock(upgrade_mutex);
  if (inProgress) return false;
  inProgress = true;
  transfer = std::move(begun);
  return true;
}

bool UpgradeRec::Announce(long long bytes) {
  return transfer->Announce(bytes);
}

void UpgradeRec::ClearanceUpgrade() {
  BackToIdle(transfer);
}

int UpgradeRec::NextRead(int room) const {
  return transfer->NextRead(room);
}

void UpgradeRec::MakeReady() {
  TLock lock(upgrade_mutex);
  ready = std::move(transfer);
  completed = true;
}

bool DoUpgrading(UpgradeRec& record, const char* data, int length, String& error) {
  const TUpgradeTransfer::TState state = record.transfer->Feed(data, length, error);
  if (state == TUpgradeTransfer::TState::kComplete) record.MakeReady();
  if (state == TUpgradeTransfer::TState::kFailed) record.ClearanceUpgrade();
  return state != TUpgradeTransfer::TState::kFailed;
}

TReadyUpgrade::TReadyUpgrade() {
  TLock lock(upgrade_mutex);
  upgrade = std::move(ready);
}

TReadyUpgrade::~TReadyUpgrade() {
  BackToIdle(upgrade);
}

bool TReadyUpgrade::HasProgram() {
  if (upgrade == nullptr) return false;
  // Where the file was missing already at the end of the transfer, the peer was told, and the script runs.
  return !upgrade->program.Made() || upgrade->program.IsInPlace();
}

const char* TReadyUpgrade::Script() {
  return upgrade->script.IsInPlace() ? upgrade->script.Path() : "";
}

const char* TReadyUpgrade::Program() {
  return upgrade->program.Path();
}
