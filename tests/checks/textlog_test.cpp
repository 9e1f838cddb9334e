#include "checks/textlog.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <functional>

#include "checks/expressions.h"
#include "checks/linefilter.h"
#include "core/paths.h"
#include "tests/checks/replies.h"

struct TCheck {
  std::string path;
  long long position = 0, knownSize = 1, knownAge = 1, size = 0;
  int scanAll = 0, status = 7;
  std::string line = "", error = "";
  TTextLogFilter first = {"ab", 0, 1, 0}, second = {"b", 0, 1, 0};
  int useSecond = 1;

  long long Run() {
    String match, reason;
    const long long result = CheckFileForExpression2(path.c_str(), position, knownSize, knownAge, first, second,
                                                     useSecond, scanAll, status, match, reason, size);
    line = Std(match);
    error = Std(reason);
    return result;
  }
  // The same as it is promised, byte by byte.
  long long Read(const std::string& bytes) {
    long long result = 0, next = position;
    for (std::string text; next < static_cast<long long>(bytes.size());) {
      const char c = bytes[static_cast<size_t>(next++)];
      const bool end = c == '\n' || c == '\r';
      if (!end) text += c;
      if (!end || text.empty()) continue;
      const int one = Matches(first, text), two = useSecond && !one ? Matches(second, text) : 0;
      if (one || two) {
        result = position + one + two;
        status = one != 0;
        line = text;
      }
      position = next;
      if (result && !scanAll) break;
      text.clear();
    }
    return result;
  }
  static int Matches(const TTextLogFilter& f, const std::string& text) {
    if (f.expression.Length() == 0) return 0;
    return f.isExpression ? SearchForExpression(Bytes(text), f.expression, f.caseSensitive, f.wholeWord)
                          : Bytes(text).Search(f.expression, f.caseSensitive, f.wholeWord);
  }
};

TTextLogFilter RandomFilter(std::mt19937& rng) {
  const char* const texts[] = {"ab", "B", "b a", "", "a\nb", "aaaa"};
  const char* const expressions[] = {"'ab' and not 'B'", "not 'a'",       "'ab' or 'ba' or 'bb'",
                                     "'a' or not 'b'",   "'ab' and 'Ba'", "('a' or '.') and 'bb'",
                                     "'' or 'aba'",      "'a' and"};
  const bool isExpression = rng() % 2;
  const char* const text = isExpression ? expressions[rng() % 8] : texts[rng() % 6];
  return {text, isExpression, static_cast<int>(rng() % 2), static_cast<int>(rng() % 2)};
}

TEST(TextLog, ReadsInBlocksAsByteByByte) {
  const TTree scratch;
  std::mt19937 rng(5);
  for (int i = 0; i < 3000; i++) {
    std::string bytes = RandomText(rng, i % 2 ? 39 : 600, {"abAB. \n\r\0\xE1", 10});
    if (i % 9 == 0) bytes.insert(rng() % (bytes.size() + 1), 262144 * (rng() % 3 + 1) - rng() % 20, '.');
    TCheck check = {scratch.Add("log", bytes), static_cast<long long>(rng() % (bytes.size() + 1))};
    check.scanAll = rng() % 2;
    check.useSecond = rng() % 2;
    check.first = RandomFilter(rng);
    check.second = RandomFilter(rng);
    TCheck model = check;
    ASSERT_EQ(model.Read(bytes), check.Run()) << bytes << ": " << check.first.expression.CStr();
    EXPECT_EQ(model.position, check.position) << bytes;
    EXPECT_EQ(model.status, check.status) << bytes;
    EXPECT_EQ(model.line, check.line) << bytes;
  }
}

TEST(TextLog, KeepsItsStateRules) {
  const TTree scratch;
  const std::string log = scratch.Add("log", "old ab\nnew ab\n"), huge = scratch.Add("huge", "");
  std::filesystem::resize_file(huge, 3u << 30);
  mkfifo((scratch.path + "fifo").c_str(), 0600);
  const std::string endless = scratch.Add("endless", std::string(kLongestLine + 1, 'b') + "\n..b\nb");
  const std::pair<TCheck, const char*> rows[] = {
      {{log, 5, 0}, "0, 13, 14 "},                        // first check: nothing is read
      {{scratch.Add("empty", ""), 5, 0}, "0, -1, 0 "},    // and again, until there is content
      {{log, 0, 14, FileAge(log.c_str())}, "0, 0, 14 "},  // unchanged
      {{log, 0, 14, 1}, "5, 7, 14 "},                     // of the same size, but written anew
      {{log, 99, 98}, "5, 7, 98 "},                       // cut; a match keeps it "changed"
      {{log, 14, 98}, "0, 14, 14 "},                      // read to the end
      {{endless}, "16777221, 16777222, 1 "},              // too long a line is counted, not reported
      {{huge, 0, 0}, "0, 3221225471, 3221225472 "},
      {{huge, 1LL << 31}, "-1, 2147483648, 1 fseek error"},
      {{log, -1}, "-1, -1, 1 fseek error"},
      {{scratch.path + "none"}, "-1, 0, 1 File \"none\" not found"},
      {{scratch.path + "fifo"}, "-1, 0, 1 Cannot open file"},
  };
  for (auto [check, expected] : rows) {
    const std::string result = std::to_string(check.Run()), place = ", " + std::to_string(check.position) + ", ";
    EXPECT_EQ(expected, result + place + std::to_string(check.knownSize) + " " + check.error) << check.path;
  }
}

static std::function<void(size_t)> whenRead;  // told how many bytes a read has brought

// In the place of the system's, for what is linked in here.
ssize_t Read(int fd, void* buffer, size_t size) __asm__("read");  // the name itself may be an inline function
ssize_t Read(int fd, void* buffer, size_t size) {
  const ssize_t n = syscall(SYS_read, fd, buffer, size);
  if (n >= 0 && whenRead) whenRead(static_cast<size_t>(n));
  return n;
}

TEST(TextLog, LinesThatArriveDuringAScanAreReadByTheNext) {
  const TTree scratch;
  TCheck check = {scratch.Add("log", "1 ab\n")};
  check.scanAll = 1;
  whenRead = [&check](size_t n) {
    if (n == 0) std::exchange(whenRead, nullptr), std::ofstream(check.path, std::ios::app) << "2 ab\n";
  };
  EXPECT_EQ(3, check.Run());
  EXPECT_EQ(nullptr, whenRead);
  EXPECT_EQ(8, check.Run()) << "not taken for unchanged";
  EXPECT_EQ(0, check.Run());
  EXPECT_EQ(10, check.position);
}
