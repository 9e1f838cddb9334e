#include "agent/upgrade.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/flags.h"
#include "agent/session.h"
#include "config/settings.h"
#include "core/paths.h"
#include "core/tempdir.h"
#include "core/tempfile.h"
#include "core/writeall.h"
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
  return IncludeTrailingPathDelimiter(folder) + "tav__.upd";
}

String ScriptPath() {
  String folder;
  (void)TempDirectory(folder);
  return folder.Copy(1, kLongestScriptFolder) + "/tavupd__.sh";
}

bool Fail(UpgradeRec& record, String& error, const char* text) {
  error = text;
  record.file.Reset();
  (void)unlink(record.path.CStr());
  record.ClearanceUpgrade();
  return false;
}

bool StartTransfer(UpgradeRec& record, String& error) {
  record.path = ProgramPath();
  record.file = CreatePrivateFile(record.path.CStr(), S_IRUSR | S_IWUSR, O_RDWR);
  if (!record.file.IsOpen()) {
    error = "Cannot create temp file";
    record.ClearanceUpgrade();
    return false;
  }
  MD5Open(&record.digest);
  return true;
}

bool DigestMatches(UpgradeRec& record, const char* data, int length) {
  unsigned char digest[kProofSize];
  MD5Close(&record.digest, digest);
  const String sent = DecodeData(String(data, length), record.sessionKey);
  return sent.Length() == kProofSize && memcmp(sent.Data(), digest, kProofSize) == 0;
}

bool WriteScript(UpgradeRec& record, String& script, String& error) {
  TFd file = CreatePrivateFile(script.CStr(), S_IRUSR | S_IWUSR, O_RDWR);
  if (!file.IsOpen()) return false;
  const String text =
      String(kScript[0]) + SettingsInForce()->tavpath + kScript[1] + record.path + kScript[2] + script + kScript[3];
  if (!WriteAll(file.Get(), text.Data(), text.Length())) return false;
  if (fchmod(file.Get(), kProgramBits) == 0) return true;
  error = "Cannot set exec flag for script";
  return false;
}

// The file is complete and `data` holds what follows it.
bool FinishTransfer(UpgradeRec& record, const char* data, int length, String& error) {
  // The digest and the script still follow a failure here; the reply then carries this text.
  if (fchmod(record.file.Get(), kProgramBits) != 0) Fail(record, error, "Cannot set exec flag new module");
  record.file.Reset();
  if (!DigestMatches(record, data, length)) return Fail(record, error, "Wrong CRC");

  String script = ScriptPath();
  if (!WriteScript(record, script, error)) {
    (void)unlink(script.CStr());
    const String text = error.Length() > 0 ? error : String("Binary code transferred. Cannot create script file");
    return Fail(record, error, String(text).CStr());
  }
  record.ClearanceUpgrade();
  TLock lock(upgrade_mutex);
  upgradeScript = script;
  return true;
}

}  // namespace

UpgradeRec::~UpgradeRec() {
  if (active) {
    file.Reset();
    if (path.Length() > 0) (void)unlink(path.CStr());
    ClearanceUpgrade();
  }
}

bool UpgradeRec::RequestUpgrade(const String& key) {
  TLock lock(upgrade_mutex);
  if (upgradeInProgress) return false;
  upgradeInProgress = 1;
  active = true;
  sessionKey = key;
  return true;
}

void UpgradeRec::ClearanceUpgrade() {
  TLock lock(upgrade_mutex);
  if (active) upgradeInProgress = 0;
  active = false;
}

bool DoUpgrading(UpgradeRec& record, const char* data, int length, String& error) {
  error = "";
  if (record.path.Length() == 0 && !StartTransfer(record, error)) return false;

  if (data != nullptr && record.received < record.expected) {
    const long long rest = record.expected - record.received;
    const int n = length < rest ? length : static_cast<int>(rest);
    if (!WriteAll(record.file.Get(), data, n)) return Fail(record, error, "Write error");
    MD5Digest(&record.digest, data, static_cast<unsigned>(n));
    record.received += n;
    data += n;
    length -= n;
  }
  if (data != nullptr && length > 0) return FinishTransfer(record, data, length, error);
  return true;
}

int NextUpgradeRead(const UpgradeRec& record, int room) {
  return NextReadSize(record.expected - record.received, room);
}
