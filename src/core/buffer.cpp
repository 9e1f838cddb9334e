#include "core/buffer.h"

#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include <algorithm>

namespace {

constexpr int kStep = 128;
constexpr int kGeometricFrom = 512;

#ifdef __SANITIZE_THREAD__
constexpr bool kPagesMove = false;  // the sanitizer would take their next owner for an intruder
#else
constexpr bool kPagesMove = true;
#endif

void* OrNull(void* pages) {
  return pages == MAP_FAILED ? nullptr : pages;
}

void* NewPages(size_t size) {
  return OrNull(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
}

}  // namespace

char* ResizeBuffer(char* old, int oldSize, int size) {
  const auto bytes = static_cast<size_t>(size), oldBytes = static_cast<size_t>(oldSize);
  const bool paged = size >= kPagesFrom;
  if (kPagesMove && paged && oldSize >= kPagesFrom) {
    return static_cast<char*>(OrNull(mremap(old, oldBytes, bytes, MREMAP_MAYMOVE)));
  }
  auto* fresh = static_cast<char*>(paged ? NewPages(bytes) : malloc(bytes));  // realloc would leave the old bytes
  if (fresh == nullptr) return nullptr;
  const size_t kept = std::min(bytes, oldBytes);
  if (kept > 0) memcpy(fresh, old, kept);
  if (!paged) memset(fresh + kept, 0, bytes - kept);
  FreeBuffer(old, oldSize);
  return fresh;
}

void FreeBuffer(char* buffer, int size) {
  if (buffer == nullptr) return;
  const auto bytes = static_cast<size_t>(size);
  if (size >= kPagesFrom) {
    munmap(buffer, bytes);
  } else {
    explicit_bzero(buffer, bytes);
    free(buffer);
  }
}

int CapacityFor(int n) {
  const int step = n < kPagesFrom ? kStep : kPage;
  return (n / step + 1) * step;
}

int GrownSize(int n, int capacity) {
  if (capacity < kGeometricFrom || capacity > kLongestBuffer / 2) return n;
  const int more = capacity + capacity / 2;
  return more > n ? more : n;
}
