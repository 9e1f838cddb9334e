#include "core/tempdir.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace {

constexpr char kName[] = "TMPDIR=";
constexpr size_t kNameLength = sizeof(kName) - 1;

// Read and replaced whole, with the atomic operations for shared pointers.
std::shared_ptr<const String> published;

}  // namespace

void SetTempDirectory(const char* dir) {
  std::shared_ptr<String> value;
  if (dir != nullptr) {
    value = std::make_shared<String>(dir);
    value->SetZero();
  }
  std::atomic_store(&published, std::shared_ptr<const String>(std::move(value)));
}

bool TempDirectory(String& dir) {
  const std::shared_ptr<const String> value = std::atomic_load(&published);
  const char* fromEnvironment = getenv("TMPDIR");
  if (fromEnvironment == nullptr) fromEnvironment = getenv("TMP");
  if (value == nullptr && fromEnvironment == nullptr) return false;

  if (value != nullptr) {
    dir = *value;
  } else {
    dir = fromEnvironment;
  }
  dir.SetZero();
  return true;
}

TChildEnvironment::TChildEnvironment(const char* tmpdir) {
  for (char** entry = environ; entry != nullptr && *entry != nullptr; entry++) {
    if (tmpdir == nullptr || strncmp(*entry, kName, kNameLength) != 0) entries.push_back(*entry);
  }
  if (tmpdir != nullptr) {
    assignment = std::string(kName) + tmpdir;
    entries.push_back(assignment.data());
  }
  entries.push_back(nullptr);
}

std::shared_ptr<const TChildEnvironment> ChildEnvironment() {
  const std::shared_ptr<const String> value = std::atomic_load(&published);
  const char* tmpdir = nullptr;
  if (value != nullptr) tmpdir = value->Length() == 0 ? "" : value->Data();
  return std::make_shared<const TChildEnvironment>(tmpdir);
}
