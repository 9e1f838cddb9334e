#include "core/cmdline_expand.h"

#include <string.h>

#include "core/cmdline_split.h"
#include "core/memsearch.h"

namespace {

// A quoted run of so many blanks is longer than all arguments may be, and any other run is as good as one blank; so
// of a longer run the rest is never needed.
constexpr int kMostBlanks = kArgumentsSize;

// Such a run before each argument, the arguments with their quotes, and what shows that the next does not fit.
constexpr int kMostNeeded = (kMaxArguments + 1) * kMostBlanks + 2 * kArgumentsSize + 2 * (kMaxArguments + 1);

// Each script's path puts bytes into the line that are not blank.
constexpr int kMostScripts = 2 * kArgumentsSize + 2 * (kMaxArguments + 1);

// A line of which only what is needed is kept.
class TLine {
 public:
  bool IsFull() const { return text.Length() >= kMostNeeded; }
  const String& Text() const { return text; }

  void Add(const char* bytes, int n) {
    for (int i = 0; i < n && !IsFull(); i++) {
      blanks = bytes[i] == ' ' ? blanks + 1 : 0;
      if (blanks <= kMostBlanks) {
        text.AddChar(bytes[i]);
      } else {
        blanks = kMostBlanks;
      }
    }
  }

 private:
  String text;
  int blanks = 0;  // at the end, counted as far as they are kept
};

// Calls `add` with the parts of the text between the marks and `replace` for each mark, by the rules of
// ReplaceAll(), until `replace` says that there is enough.
template <typename TAdd, typename TReplace>
void ReplaceMarks(const String& text, const char* mark, TAdd add, TReplace replace) {
  const int size = static_cast<int>(strlen(mark));
  int done = 0;
  while (text.Length() - done > size) {
    const int hit = memposi(text.Data() + done, text.Length() - done, mark, size);
    if (hit == 0) break;
    add(text.Data() + done, hit - 1);
    done += hit - 1 + size;
    if (!replace()) return;
  }
  if (text.Length() > done) add(text.Data() + done, text.Length() - done);
}

String InsertScripts(const String& line, const char* script) {
  const int size = static_cast<int>(strlen(script));
  String result;
  int inserted = 0;
  const auto add = [&](const char* bytes, int n) { result.AddData(bytes, n); };
  ReplaceMarks(line, kScriptMark, add, [&] { return add(script, size), ++inserted < kMostScripts; });
  return result;
}

}  // namespace

String ExpandCommandLine(const String& line, const char* script, const char* params) {
  const String text = InsertScripts(line, script);
  TLine value, result;
  const size_t size = strlen(params);
  value.Add(params, static_cast<int>(size));
  const String& inserted = value.Text();
  const bool blank = strspn(params, " ") == size;

  int blanks = 0;  // inserted as such since anything else
  const auto add = [&](const char* bytes, int n) {
    if (n > 0) blanks = 0;
    result.Add(bytes, n);
  };
  ReplaceMarks(text, kParamsMark, add, [&] {
    if (!blank || blanks < kMostBlanks) result.Add(inserted.Data(), inserted.Length());
    if (blank && blanks < kMostBlanks) blanks += inserted.Length();
    return !result.IsFull();
  });
  return result.Text();
}
