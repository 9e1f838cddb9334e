#include "core/zostring.h"
#include "core/memsearch.h"
#include "core/strlist.h"

#include <gtest/gtest.h>
#include <string.h>

#include "tests/scratch.h"

namespace {

// The rule as it is told: left to right, only while more than `from` is left.
std::string ReplaceByTheRule(const std::string& text, const std::string& from, const std::string& to) {
  std::string result, rest = text;
  while (rest.size() > from.size()) {
    const size_t hit = rest.find(from);
    if (from.empty() || hit == std::string::npos) break;
    result += rest.substr(0, hit) + to;
    rest = rest.substr(hit + from.size());
  }
  return result + rest;
}

TEST(StringTest, TrimTakesBlanksControlsAndHighBytes) {
  const std::pair<const char*, const char*> rows[] = {
      {"  x  ", "x"}, {"\t\r\na b\x80\xff", "a b"}, {" \x80\xff ", ""}, {"", ""}, {"\x7f", "\x7f"}};
  for (const auto& [text, trimmed] : rows) EXPECT_STREQ(trimmed, String(text).Trim().CStr());
}

TEST(StringTest, EndsInANulWhateverBecomesOfIt) {
  String s(" abcdef ");
  const auto expect = [&s](const char* text) {
    EXPECT_STREQ(text, s.CStr());
    EXPECT_EQ(strlen(text), static_cast<size_t>(s.Length()));
  };
  expect(" abcdef ");
  s.Trim(), expect("abcdef");
  s.Delete(5, 2), expect("abcd");
  s += "ddd", expect("abcdddd");
  s.RemoveRepeats('d'), expect("abcd");
  s.SetLength(3), expect("abc");
  s = "ab", expect("ab");
  s = String(), expect("");
  for (int n = 1; n <= 300; ++n) {
    s.AddChar('x');
    ASSERT_EQ(static_cast<size_t>(n), strlen(s.CStr()));
  }

  String exact(128);  // fixed: what does not fit is dropped
  exact.CopyData(std::string(130, 'y').c_str(), -1);
  exact.AddChar('z');
  exact += "z";
  EXPECT_EQ(128, exact.Length());
  EXPECT_EQ(128u, strlen(exact.CStr()));
}

TEST(StringTest, CutsAndDeletesWithinItsEnds) {
  const String abcd("abcd");
  EXPECT_TRUE(abcd.Copy(3, 100) == "cd" && abcd.Copy(5, 1) == "" && abcd.Copy(2, -1) == "" &&
              abcd.Copy(0, 2) == "");
  const struct {
    int index, count;
    const char* left;
  } rows[] = {{2, 100, "a"}, {5, 1, "abcd"}, {0, 1, "abcd"}, {1, 0, "abcd"}, {1, 3, "d"}, {2, 2147483647, "a"}};
  for (const auto& row : rows) {
    String s(abcd);
    s.Delete(row.index, row.count);
    EXPECT_TRUE(s == row.left) << row.index << "," << row.count;
  }
  const char* words[] = {"a", "a", "", "b", ""};
  for (int n = 0; n < 5; ++n) EXPECT_TRUE(String("a\n\nb").GetWord(n, '\n') == words[n]) << n;
}

TEST(StringTest, StrCpyWritesNothingForAnEmptyString) {
  char buf[8] = "zzzzzzz";
  EXPECT_STREQ("zzzzzzz", String("").StrCpy(buf, -1));
  EXPECT_STREQ("abc", String("abcd").StrCpy(buf, 4));
  EXPECT_STREQ("ab", String("ab").StrCpy(buf, 4));
}

TEST(StringTest, SearchHonoursCaseAndWords) {
  const std::tuple<const char*, const char*, int, int, int> rows[] = {
      {"an Error here", "error", 0, 0, 4},
      {"an Error here", "error", 1, 0, 0},
      {"cat concat cat", "cat", 1, 1, 1},
      {"concat cat", "cat", 1, 1, 8},
      {"cats 1cat cat_", "cat", 1, 1, 11},
      {"", "a", 1, 0, 0},
      {"abc", "", 1, 0, 0},
      {"aXa", "xa", 0, 1, 0},
  };
  for (const auto& [text, pattern, caseSensitive, wholeWord, at] : rows)
    EXPECT_EQ(at, String(text).Search(pattern, caseSensitive, wholeWord)) << pattern << " in " << text;
}

TEST(StringTest, ReplaceAllKeepsItsEndRule) {
  EXPECT_TRUE(String("a\r\nb\r\n").ReplaceAll("\r\n", " ", 1) == "a b ");
  EXPECT_TRUE(String("a\r\n\r\n").ReplaceAll("\r\n", " ", 1) == "a \r\n");
  EXPECT_TRUE(String("\r\n").ReplaceAll("\r\n", " ", 1) == "\r\n");
  EXPECT_TRUE(String("x%Script%y").ReplaceAll("%script%", "S", 0) == "xSy");

  std::mt19937 random(7);
  const auto text = [&](unsigned most) { return RandomText(random, most, "ab"); };
  for (int i = 0; i < 3000; ++i) {
    const std::string s = text(12), from = text(3), to = text(3);
    EXPECT_EQ(ReplaceByTheRule(s, from, to), Std(String(s.c_str()).ReplaceAll(from.c_str(), to.c_str(), 1)))
        << s << "/" << from << "/" << to;
  }
}

// Sizes on both sides of where a buffer becomes pages.
TEST(StringTest, GrowsAndShrinksWithItsBytesAndZerosBehindThem) {
  std::mt19937 random(5);
  String s("abc");
  std::string expected("abc");
  for (int i = 0; i < 300; ++i) {
    if (i % 3 == 0 && expected.size() < 300000) {
      s.AddData(s.Data(), s.Length());  // its own bytes, across a reallocation
      expected += expected;
    } else {
      const auto size = 1 + random() % 300000;
      s.SetLength(static_cast<int>(size));
      expected.resize(size);
    }
    s[s.Length()] = expected.back() = static_cast<char>('a' + i % 26);
    ASSERT_TRUE(Std(s) == expected) << i << ": " << expected.size();
    ASSERT_TRUE(s.CStr()[s.Length()] == 0) << i << ": " << expected.size();
  }
  EXPECT_TRUE(String("a   b  c").RemoveRepeats(' ') == "a b c");
}

TEST(TStrListDeathTest, AnIndexOutOfRangeStopsTheProgram) {
  TStrList list;
  list.Add("one");
  list.Add("");
  list.Delete(0);
  EXPECT_TRUE(list[0] == "");
  EXPECT_DEATH((void)list[1], "zostring:495: String TStrList::operator\\[\\]\\(int\\): Assertion `0' failed");
  EXPECT_DEATH(list.Delete(-1), "zostring:471: void TStrList::Delete\\(int\\): Assertion `0' failed");
}

TEST(CharacterTest, DecimalTextsAndSearches) {
  EXPECT_TRUE(isdecimalnum(""));
  EXPECT_TRUE(isdecimalnum("1-2"));
  EXPECT_TRUE(isdecimalnum("--"));
  EXPECT_TRUE(isdecimalnum("1-", 1));
  EXPECT_FALSE(isdecimalnum("5x") || isdecimalnum("+5") || isdecimalnum("1-", 2));
  EXPECT_EQ(3, mempos("abcb", 4, "cb", 2));
  EXPECT_EQ(0, mempos("abcb", 4, "", 0));
  EXPECT_EQ(3, memposi("abBC", 4, "bc", 2));
  EXPECT_EQ(0, memposi(nullptr, 4, "bc", 2));
}

}  // namespace
