#include "agent/upgrade.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "agent/chunks.h"
#include "agent/flags.h"
#include "config/settings.h"
#include "core/clock.h"
#include "core/closers.h"
#include "core/mutex.h"
#include "core/paths.h"
#include "core/tempdir.h"
#include "core/tempfile.h"
#include "core/tempregister.h"
#include "core/trouble.h"
#include "core/writeall.h"
#include "protocol/md5.h"
#include "protocol/programsize.h"
#include "protocol/tav_const.h"

namespace {

constexpr mode_t kProgramBits = 0775;
constexpr int kLongestScriptFolder = 1023;
constexpr int kMostLooks = 50;
constexpr long long kLookPauseUs = 10 * 1000;

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

// Makes a call that examines a file.  A shortage says nothing about the file, and an upgrade that is given up for
// it would cost the host its agent: it is waited out for a moment.
template <class TCall>
bool Look(TCall call) {
  for (int attempt = 1; call() != 0; ++attempt) {
    if (!OwnTrouble(errno) || attempt == kMostLooks) return false;
    SleepUs(kLookPauseUs);
  }
  return true;
}

// A file that is made here and kept open, so that it can be told from another of its name.  It is removed with the
// object.
class TKeptFile {
 public:
  TKeptFile() = default;
  TKeptFile(const TKeptFile&) = delete;
  TKeptFile& operator=(const TKeptFile&) = delete;
  ~TKeptFile() { Remove(); }

  bool Make(const String& name) {
    path = name;
    if (!RegisterTempFile(path.CStr())) return false;
    made = true;
    file = CreatePrivateFile(path.CStr(), S_IRUSR | S_IWUSR, O_RDWR);
    return file.IsOpen();
  }
  void Remove() {
    if (!made) return;
    file.Reset();
    (void)unlink(path.CStr());  // may have vanished, or never been made
    ForgetTempFile(path.CStr());
    made = false;
  }
  bool Write(const char* bytes, int n) { return WriteAll(file.Get(), bytes, n); }
  bool MakeExecutable() { return fchmod(file.Get(), kProgramBits) == 0; }

  // True while the path leads to the very file that was made.
  bool IsInPlace() {
    struct stat open, named;
    if (!file.IsOpen() || !Look([&] { return fstat(file.Get(), &open); })) return false;
    if (!Look([&] { return lstat(path.CStr(), &named); })) return false;
    return open.st_dev == named.st_dev && open.st_ino == named.st_ino;
  }
  // What is open for writing can't be executed.
  bool CloseForWriting() {
    TFd reading(open(path.CStr(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!reading.IsOpen() || !IsInPlace()) return false;
    file = std::move(reading);
    return IsInPlace();
  }

  bool Made() const { return made; }
  const char* Path() { return path.CStr(); }

 private:
  String path;
  TFd file;
  bool made = false;
};

}  // namespace

struct UpgradeRec::TTransfer {
  explicit TTransfer(const String& key) : sessionKey(key) {}

  bool Start() {
    if (!program.Make(ProgramPath())) return false;
    MD5Open(&digest);
    return true;
  }
  bool DigestMatches(const char* data, int length) {
    unsigned char own[kProofSize];
    MD5Close(&digest, own);
    const String sent = DecodeData(String(data, length), sessionKey);
    return sent.Length() == kProofSize && memcmp(sent.Data(), own, kProofSize) == 0;
  }
  bool WriteScript(String& error) {
    const String path = ScriptPath();
    if (!script.Make(path)) return false;
    const String text = String(kScript[0]) + SettingsInForce()->tavpath + kScript[1] + program.Path() + kScript[2] +
                        path + kScript[3];
    if (!script.Write(text.Data(), text.Length())) return false;
    if (script.MakeExecutable()) return script.CloseForWriting();
    error = "Cannot set exec flag for script";
    return false;
  }

  long long expected = 0;  // bytes of the new program
  long long received = 0;  // bytes of it written so far
  TKeptFile program;
  TKeptFile script;
  MD5Context digest;
  String sessionKey;
  const int givenUp = TimesGivenUp();  // at the beginning
};

namespace {

TMutex upgrade_mutex;  // held for these two
bool inProgress GUARDED_BY(upgrade_mutex) = false;
std::unique_ptr<UpgradeRec::TTransfer> ready GUARDED_BY(upgrade_mutex);  // awaits its hand-over

// Not before the files are gone: the next upgrade has the same ones.
void BackToIdle() {
  TLock lock(upgrade_mutex);
  inProgress = false;
}

}  // namespace

UpgradeRec::UpgradeRec() = default;
UpgradeRec::~UpgradeRec() {
  ClearanceUpgrade();
}

bool UpgradeRec::RequestUpgrade(const String& key) {
  auto begun = std::make_unique<TTransfer>(key);
  TLock lock(upgrade_mutex);
  if (inProgress) return false;
  inProgress = true;
  transfer = std::move(begun);
  return true;
}

bool UpgradeRec::Announce(long long bytes) {
  transfer->expected = bytes;
  return bytes >= kSmallestProgram && bytes <= kLargestProgram;
}

void UpgradeRec::ClearanceUpgrade() {
  if (transfer == nullptr) return;
  transfer = nullptr;
  BackToIdle();
}

int UpgradeRec::NextRead(int room) const {
  return NextReadSize(transfer->expected - transfer->received, room);
}

bool UpgradeRec::Fail(String& error, const char* text) {
  ClearanceUpgrade();
  error = text;
  return false;
}

void UpgradeRec::MakeReady() {
  TLock lock(upgrade_mutex);
  ready = std::move(transfer);
  completed = true;
}

// The file is complete and `data` holds what follows it.
bool UpgradeRec::Finish(const char* data, int length, String& error) {
  // The digest and the script still follow a failure here, and the hand-over as well; the reply then carries this
  // text.
  if (!transfer->program.MakeExecutable() || !transfer->program.IsInPlace()) {
    transfer->program.Remove();
    error = "Cannot set exec flag new module";
  }
  if (!transfer->DigestMatches(data, length)) return Fail(error, "Wrong CRC");
  if (!transfer->WriteScript(error)) {
    if (error.Length() == 0) error = "Binary code transferred. Cannot create script file";
    ClearanceUpgrade();
    return false;
  }
  MakeReady();
  return true;
}

bool DoUpgrading(UpgradeRec& record, const char* data, int length, String& error) {
  error = "";
  UpgradeRec::TTransfer& transfer = *record.transfer;
  if (!transfer.program.Made() && !transfer.Start()) return record.Fail(error, "Cannot create temp file");
  if (data == nullptr) return true;
  if (transfer.givenUp != TimesGivenUp()) return record.Fail(error, "Write error");

  if (transfer.received < transfer.expected) {
    const long long rest = transfer.expected - transfer.received;
    const int n = length < rest ? length : static_cast<int>(rest);
    if (!transfer.program.Write(data, n)) return record.Fail(error, "Write error");
    MD5Digest(&transfer.digest, data, static_cast<unsigned>(n));
    transfer.received += n;
    data += n;
    length -= n;
  }
  return length == 0 || record.Finish(data, length, error);
}

bool UpgradeScript(const char*& script, const char*& program) {
  TLock lock(upgrade_mutex);
  if (ready == nullptr) return false;
  program = ready->program.Path();
  script = ready->script.IsInPlace() ? ready->script.Path() : "";
  // Where the file was missing already at the end of the transfer, the peer was told, and the script runs.
  return !ready->program.Made() || ready->program.IsInPlace();
}

void AbandonUpgrade() {
  std::unique_ptr<UpgradeRec::TTransfer> over;
  {
    TLock lock(upgrade_mutex);
    over = std::move(ready);
  }
  if (over == nullptr) return;
  over = nullptr;
  BackToIdle();
}
