#include "core/paths.h"

#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/trouble.h"

namespace {

constexpr int kMaxNamePart = 4095;  // the longest name or extension that is handed out
constexpr int kMaxCurrentDir = 4095;

// The scan of ExpandFileName over an absolute path: `i` reads, `pending` is where the segment begins that has not
// been taken over yet, `afterSlash` tells that a segment is just beginning.
class TSegmentScan {
 public:
  explicit TSegmentScan(const String& path) : text(path), length(path.Length()) {}

  String Run() {
    for (; i <= length; i++) Step();
    TakeRest();
    return result;
  }

 private:
  char At(int position) const { return position <= length ? text[position] : '\0'; }

  void Step() {
    const char c = At(i);
    if (c == '/' && i > pending) return Slash();
    if (c != '.' && c != '/') afterSlash = false;
    if (afterSlash) Dots();
  }

  void Slash() {
    if (At(i - 1) != '/') result += text.Copy(pending, i - pending);
    pending = i;
    afterSlash = true;
  }

  // At the start of a segment.  Of ".." only the first dot is taken here; the second one then reads as a ".".
  void Dots() {
    if (i == length) {
      result = ExcludeTrailingPathDelimiter(result);
      pending = i + 1;
      return;
    }
    if (At(i) == '.' && At(i + 1) == '.' && At(i + 2) != '.') {
      if (result.Length() > 1) result = ExtractFilePath(ExcludeTrailingPathDelimiter(result));
      pending = i;
      return;
    }
    if (At(i) == '.' && At(i + 1) == '/') {
      result = IncludeTrailingPathDelimiter(result);
      i++;
      pending = i + 1;
      return;
    }
    afterSlash = false;
  }

  // A slash that closes the path is dropped, unless it is all there is.
  void TakeRest() {
    const bool slashOnly = pending == length && At(length) == '/';
    if (!slashOnly || result.Length() == 0) result += text.Copy(pending, length - pending + 1);
  }

  const String& text;
  const int length;
  String result;
  int i = 1;
  int pending = 1;
  bool afterSlash = false;
};

}  // namespace

bool isLeadByte(char) {
  return false;
}

int StrCharLength(const char*) {
  return 1;
}

int ByteType(const char*, int) {
  return 0;
}

int ByteType(const String&, int) {
  return 0;
}

const char* AnsiStrPos(const char* s, const char* sub) {
  return strstr(s, sub);
}

const char* StrNextChar(const char* s) {
  return s + 1;
}

int AnsiPos(const char* sub, const char* s) {
  const char* found = AnsiStrPos(s, sub);
  return found ? static_cast<int>(found - s) + 1 : 0;
}

bool IsPathDelimiter(const String& s, int i) {
  return i >= 1 && i <= s.Length() && s[i] == '/';
}

bool IsDelimiter(const char* delims, const String& s, int i) {
  return i >= 1 && i <= s.Length() && s[i] != '\0' && strchr(delims, s[i]);
}

int LastDelimiter(const char* delims, const String& s) {
  for (int i = s.Length(); i > 0; i--)
    if (IsDelimiter(delims, s, i)) return i;
  return 0;
}

String IncludeTrailingPathDelimiter(const String& path) {
  return IsPathDelimiter(path, path.Length()) ? path : path + '/';
}

String ExcludeTrailingPathDelimiter(const String& path) {
  return IsPathDelimiter(path, path.Length()) ? path.Copy(1, path.Length() - 1) : path;
}

String ExtractFilePath(const String& path) {
  return path.Copy(1, LastDelimiter("/", path));
}

String ExtractFileName(const String& path) {
  return path.Copy(LastDelimiter("/", path) + 1, kMaxNamePart);
}

String ExtractFileExt(const String& path) {
  const int i = LastDelimiter("./", path);
  return i > 0 && path[i] == '.' ? path.Copy(i, kMaxNamePart) : String();
}

String ExpandTilde(const String& path) {
  return path;
}

String GetCurrentDir() {
  char buffer[kMaxCurrentDir];
  return getcwd(buffer, sizeof buffer) ? String(buffer) : String();
}

String ExpandFileName(const String& path) {
  if (path.Length() == 0 || path[1] == '~') return path;
  if (path[1] == '/') return TSegmentScan(path).Run();
  const String absolute = IncludeTrailingPathDelimiter(GetCurrentDir()) + path;
  return TSegmentScan(absolute).Run();
}

bool ExamineFile(const char* path, struct stat& status) {
  return Uninterrupted([&] { return stat(path ? path : "", &status); }) == 0;
}

long long FileAge(const char* path) {
  struct stat status;
  return ExamineFile(path, status) ? status.st_mtime : -1;
}

long long FileSize(const char* path) {
  struct stat status;
  return ExamineFile(path, status) ? status.st_size : -1;
}

bool FileExists(const char* path) {
  struct stat status;
  return ExamineFile(path, status) && S_ISREG(status.st_mode);
}

bool DirectoryExists(const char* path) {
  struct stat status;
  errno = 0;
  return ExamineFile(path, status) && S_ISDIR(status.st_mode);
}

bool DeleteFile(const char* path) {
  return unlink(path ? path : "") == 0;
}
