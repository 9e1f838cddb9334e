#include "checks/scriptfiles.h"

#include <stdio.h>

#include "core/tempfile.h"

namespace {

constexpr int kFixedNameSize = 36;

}  // namespace

bool TakeUniqueName(TTempFile& file) {
  return gettempfilename(file.path, sizeof(file.path), nullptr) != 0 && file.Register();
}

bool TakeThreadName(TTempFile& file, const char* format) {
  char name[kFixedNameSize];
  snprintf(name, sizeof(name), format, static_cast<long>(GetUniqueThreadID()));
  return gettempfilename(file.path, sizeof(file.path), name) != 0 && file.Register();
}

TFile OpenResults(const char* path) {
  TFd fd = OpenPrivateFile(path);
  TFile file(fd.IsOpen() ? fdopen(fd.Get(), "r") : nullptr);
  if (file != nullptr) (void)fd.Release();  // the stream's from here on
  return file;
}
