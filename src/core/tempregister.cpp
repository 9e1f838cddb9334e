#include "core/tempregister.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <new>

#include "core/clock.h"
#include "core/mutex.h"

namespace {

constexpr size_t kLeastRoom = 256;
constexpr long long kLockMs = 1000;
constexpr long long kLookUs = 1000;
constexpr long long kClosedMs = 1000;
constexpr int kMakingUs = 20 * 1000;

// Records are never freed, only used again, and a new one enters the list whole: the list can be walked without the
// lock when there is no getting it any more.
enum TState { kFree, kFile, kFolder };
struct TRecord {
  TRecord* next;
  size_t room;
  std::atomic<int> state;

  char* Path() { return reinterpret_cast<char*>(this + 1); }  // `room` bytes behind the record
};

TMutex registermutex;  // held for a walk along the list
std::atomic<TRecord*> records{nullptr};
std::atomic<long long> closedUntil{0};  // no new files between the removal and the end

TRecord* RecordFor(size_t size) {
  for (TRecord* record = records; record != nullptr; record = record->next) {
    if (record->state == kFree && record->room >= size) return record;
  }
  const size_t room = size < kLeastRoom ? kLeastRoom : size;
  void* memory = malloc(sizeof(TRecord) + room);
  if (memory == nullptr) return nullptr;
  return records = new (memory) TRecord{records, room, {kFree}};
}

TRecord* Find(const char* path) {
  for (TRecord* record = records; record != nullptr; record = record->next) {
    if (record->state != kFree && strcmp(record->Path(), path) == 0) return record;
  }
  return nullptr;
}

bool Register(const char* path, TState state) {
  TLock lock(registermutex);
  if (closedUntil != 0 && MonotonicMs() < closedUntil) return false;
  if (state == kFolder && Find(path) != nullptr) return true;

  const size_t size = strlen(path) + 1;
  TRecord* record = RecordFor(size);
  if (record == nullptr) return false;
  memcpy(record->Path(), path, size);
  record->state = state;
  return true;
}

bool Same(const char* path, const char* spare) {
  return spare != nullptr && strcmp(path, spare) == 0;
}

// Returns how many files were not there.
int RemoveFiles(const char* spare1, const char* spare2) {
  int missing = 0;
  for (TRecord* record = records; record != nullptr; record = record->next) {
    if (record->state != kFile || Same(record->Path(), spare1) || Same(record->Path(), spare2)) continue;
    if (unlink(record->Path()) != 0 && errno == ENOENT) ++missing;
  }
  return missing;
}

void RemoveFolders() {
  for (TRecord* record = records; record != nullptr; record = record->next) {
    if (record->state == kFolder) (void)rmdir(record->Path());  // stays while there is something in it
  }
}

}  // namespace

bool RegisterTempFile(const char* path) {
  return Register(path, kFile);
}

bool RegisterTempFolder(const char* path) {
  return Register(path, kFolder);
}

void ForgetTempFile(const char* path) {
  TLock lock(registermutex);
  TRecord* record = Find(path);
  if (record != nullptr) record->state = kFree;
}

void RemoveTempFiles(const char* spare1, const char* spare2) {
  // Who has held it for a whole second has broken under it and changes nothing any more.
  const long long until = MonotonicMs() + kLockMs;
  bool locked = false;
  while (!(locked = pthread_mutex_trylock(registermutex.Native()) == 0) && MonotonicMs() < until) SleepUs(kLookUs);
  closedUntil = MonotonicMs() + kClosedMs;
  // Its maker, or a child just started, may be about to make what is missing.
  if (RemoveFiles(spare1, spare2) > 0) {
    usleep(kMakingUs);
    (void)RemoveFiles(spare1, spare2);
  }
  RemoveFolders();
  if (locked) pthread_mutex_unlock(registermutex.Native());
}

bool TTempFile::Register() {
  registered = RegisterTempFile(path);
  if (!registered) path[0] = '\0';
  return registered;
}

TTempFile::~TTempFile() {
  if (!registered) return;
  (void)unlink(path);  // may never have been made
  ForgetTempFile(path);
}
