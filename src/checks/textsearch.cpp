#include "checks/textsearch.h"

#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <new>
#include <string>

#include "checks/blockfinder.h"
#include "core/inputfile.h"
#include "core/memsearch.h"
#include "core/paths.h"

namespace {

constexpr size_t kBlock = 256 * 1024;  // bytes a read, and at least the text's length

long long SizeOf(const TInputFile& file) {
  struct stat st;
  return fstat(file.Descriptor(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

// Finds a text in a file that arrives block by block.
//
// A whole word is judged as if the file were seen through windows that each begin `step` bytes after the one before
// and share the text's length with it: an occurrence that ends one window and begins the next is looked at in both,
// with the neighbour on the far side out of sight each time.  It counts when either neighbour alone allows it; the
// servers know these results.  Every other occurrence lies inside one window with both of its neighbours.
class TFileScan {
 public:
  TFileScan(const String& text, long long step, int caseSensitive, int wholeWord)
      : length(static_cast<size_t>(text.Length())),
        windowStep(step),
        lower(!caseSensitive),
        words(wholeWord),
        fast(std::string(text.Data(), length), lower),
        linear(text.Data(), length),
        block(std::max(kBlock, length)),
        buffer(new (std::nothrow) char[length + 1 + block]) {}

  bool Allocated() const { return buffer != nullptr; }

  // Reads the next block.  False when there is no more; `failed` tells a read error from the end.
  bool Read(TInputFile& file, bool& failed) {
    if (atEnd) return false;
    DropSearched();
    const long long n = file.Read(buffer.get() + held, block);
    failed = n < 0;
    if (failed) return false;
    held += static_cast<size_t>(n);
    if (fast.GaveUp()) Lower(static_cast<size_t>(n));
    atEnd = static_cast<size_t>(n) < block;
    return true;
  }

  // The 1-based offset in the file of an occurrence that counts, or 0.
  long long Find() {
    const char* end = buffer.get() + held;
    const char* hit = First(buffer.get() + searched, end);
    for (; hit; hit = Next(hit, end)) {
      if (!words) break;
      if (hit + length == end && !atEnd) {  // its right neighbour comes with the next block
        searched = static_cast<size_t>(hit - buffer.get());
        return 0;
      }
      if (Counts(hit, end)) break;
    }
    if (hit) return base + (hit - buffer.get()) + 1;
    if (held >= length) searched = std::max(searched, held - length + 1);
    return 0;
  }

 private:
  const char* First(const char* from, const char* end) {
    if (!fast.GaveUp()) {
      const char* hit = fast.First(from, end);
      if (!fast.GaveUp()) return hit;
      Lower(held);
    }
    return linear.First(from, end);
  }

  const char* Next(const char* hit, const char* end) {
    return fast.GaveUp() ? linear.Next(hit, end) : First(hit + 1, end);
  }

  // What is told apart by the linear search alone: the last bytes that are held.
  void Lower(size_t last) {
    if (lower) strlower(buffer.get() + held - last, static_cast<int>(last));
  }

  bool Counts(const char* hit, const char* end) const {
    const long long offset = base + (hit - buffer.get());
    const bool left = offset == 0 || !IsWordByte(hit[-1]);
    const bool right = hit + length == end || !IsWordByte(hit[length]);
    const bool betweenWindows = offset > 0 && offset % windowStep == 0;
    return betweenWindows ? left || right : left && right;
  }

  // Keeps what an occurrence may still begin with, and the byte before it.
  void DropSearched() {
    const size_t gone = searched > 0 ? searched - 1 : 0;
    memmove(buffer.get(), buffer.get() + gone, held - gone);
    held -= gone;
    searched -= gone;
    base += static_cast<long long>(gone);
  }

  size_t length;
  long long windowStep;
  bool lower;
  bool words;
  TBlockFinder fast;
  TTextFinder linear;  // takes over when the fast one gives up, on bytes in lower case where case is ignored
  size_t block;
  std::unique_ptr<char[]> buffer;
  size_t held = 0;      // bytes in the buffer
  size_t searched = 0;  // where in the buffer the next occurrence may begin
  long long base = 0;   // offset in the file of the buffer's first byte
  bool atEnd = false;
};

}  // namespace

bool IsWordByte(char c) {
  return (c >= '0' && c <= '9') || (UpCase(c) >= 'A' && UpCase(c) <= 'Z');
}

const char* TTextFinder::First(const char* from, const char* end) const {
  if (from >= end) return nullptr;
  return static_cast<const char*>(memmem(from, static_cast<size_t>(end - from), text, length));
}

// Occurrences closer than half the text come from a short period q of it (Fine and Wilf, 1965): then the next one
// is either q bytes on, which q bytes of comparison tell, or more than length - q bytes on.  So every search that
// starts anew has moved on by half the text, and a run of occurrences costs no more than its length.
const char* TTextFinder::Next(const char* hit, const char* end) {
  if (!periodKnown) period = ShortPeriod();
  periodKnown = true;
  if (period == 0) return First(hit + 1, end);

  const auto left = static_cast<size_t>(end - hit);
  if (left < length + period) return nullptr;
  if (memcmp(hit + length, text + length - period, period) == 0) return hit + period;
  return First(hit + (length - period) + 1, end);
}

// The first place where the first half of the text stands again is its period, or there is no short one.
size_t TTextFinder::ShortPeriod() const {
  const size_t half = length - length / 2;
  const void* again = length < 2 ? nullptr : memmem(text + 1, length - 1, text, half);
  if (!again) return 0;
  const auto distance = static_cast<size_t>(static_cast<const char*>(again) - text);
  return memcmp(text, text + distance, length - distance) == 0 ? distance : 0;
}

const char* TTextFinder::FirstWord(const char* begin, const char* end) {
  const char* hit = First(begin, end);
  while (hit && ((hit > begin && IsWordByte(hit[-1])) || (hit + length < end && IsWordByte(hit[length]))))
    hit = Next(hit, end);
  return hit;
}

long long FindStrInFile(const char* path, String& text, int casesensitive, int wholeword) {
  if (text.Length() == 0 || !path || !*path) return -1;
  TInputFile file;
  if (!file.Open(path)) return -1;
  const long long size = SizeOf(file), length = text.Length();
  if (length > size) return -1;

  if (!casesensitive) text.LowerCase();
  // A window is three times the text, but no longer than the file and a byte.
  TFileScan scan(text, std::min(3 * length, size + 1) - length, casesensitive, wholeword);
  if (!scan.Allocated()) return -1;

  bool failed = false;
  while (scan.Read(file, failed)) {
    const long long offset = scan.Find();
    if (offset > 0) return offset;
  }
  return -1;  // a read error as well
}

long long FindFileInFile(const char* path, const char* patternfile) {
  if (!patternfile || !*patternfile) return -1;
  const long long size = FileSize(patternfile);
  if (size == 0) return 1;
  if (size < 0 || size > kMaxPatternFile) return -1;

  TInputFile file;
  if (!file.Open(patternfile)) return -1;
  String contents;
  contents.SetLength(static_cast<int>(size));
  const long long n = file.Read(contents.Data(), static_cast<size_t>(size));
  if (n < 0) return -1;
  contents.SetLength(static_cast<int>(n));
  return FindStrInFile(path, contents, 1, 0);
}
