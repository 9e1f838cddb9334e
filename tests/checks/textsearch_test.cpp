#include "checks/textsearch.h"

#include <gtest/gtest.h>

#include "core/memsearch.h"
#include "tests/checks/replies.h"

// The search as it is promised, window by window: each begins with the last bytes of the one before.
static long long WindowSearch(const std::string& file, const std::string& text, int words) {
  const size_t m = text.size(), size = std::min(3 * m, file.size() + 1);
  for (size_t start = 0;; start += size - m) {
    const std::string window = file.substr(start, size);
    for (size_t p = window.find(text); p != std::string::npos; p = window.find(text, p + 1)) {
      const bool beside = (p > 0 && isalnum(window[p - 1])) || (p + m < window.size() && isalnum(window[p + m]));
      if (!words || !beside) return static_cast<long long>(start + p + 1);
    }
    if (window.size() < size) return -1;
  }
}

TEST(FindStrInFile, AgreesWithTheWindows) {
  const TTree scratch;
  std::mt19937 rng(4);
  for (int i = 0; i < 1200; i++) {
    std::string bytes(i % 50 ? 0 : 262144 - rng() % 40, '.');  // now and then over the edge of a block
    for (size_t n = rng() % 60 + 8; n > 0; n--) bytes += "aa-"[rng() % 3];
    const std::string text = bytes.substr(bytes.size() - 8 + rng() % 8, rng() % 8 + 1);
    String sought = Bytes(text);
    const int words = rng() % 2, cs = rng() % 2;
    if (!cs) strupper(sought.Data(), sought.Length());
    EXPECT_EQ(WindowSearch(bytes, text, words), FindStrInFile(scratch.Add("f", bytes).c_str(), sought, cs, words))
        << bytes << ": " << text;
  }
}

TEST(FindStrInFile, JudgesWordsAtABlocksEdge) {
  const TTree scratch;
  for (size_t at = 262140; at < 262150; at++) {
    for (const std::string behind : {"a", "-"}) {
      const std::string bytes = std::string(at, '.') + "ab" + behind + std::string(262144, '.');
      String text = "ab";
      EXPECT_EQ(WindowSearch(bytes, "ab", 1), FindStrInFile(scratch.Add("f", bytes).c_str(), text, 1, 1)) << at;
    }
  }
}

TEST(FindStrInFile, CrowdedMatchesCostLinearTime) {
  const TTree scratch;
  std::string bytes;
  while (bytes.size() < 6000000) bytes += "a--";
  String text = Bytes(bytes.substr(0, 999999));
  EXPECT_EQ(5000003, FindStrInFile(scratch.Add("f", "x" + bytes).c_str(), text, 1, 1));
}
