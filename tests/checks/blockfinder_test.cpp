#include "checks/blockfinder.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <random>

#include "core/memsearch.h"
#include "tests/scratch.h"

namespace {

// A block between pages that nobody may read.
class TFencedBlock {
 public:
  TFencedBlock()
      : pages(static_cast<char*>(mmap(nullptr, 3 * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
    mprotect(pages + kPage, kPage, PROT_READ | PROT_WRITE);
  }
  ~TFencedBlock() { munmap(pages, 3 * kPage); }
  const char* Put(const std::string& bytes, bool atEnd) {
    char* const begin = pages + kPage + (atEnd ? kPage - bytes.size() : 0);
    return static_cast<const char*>(memcpy(begin, bytes.data(), bytes.size()));
  }

 private:
  static constexpr size_t kPage = 4096;
  char* pages;
};

std::string Lowered(std::string text) {
  strlower(text.data(), static_cast<int>(text.size()));
  return text;
}

TEST(BlockFinder, FindsTheFirstAndTheLastInEveryForm) {
  const TFinderForm* const usual = finderForm;
  TFencedBlock fenced;
  std::mt19937 rng(3);
  for (finderForm = kFinderForms; finderForm->name != nullptr; ++finderForm) {
    for (int i = 0; finderForm->isThere() && i < 20000; ++i) {
      const bool fold = rng() % 2;
      const std::string bytes = RandomText(rng, 500, {i % 2 ? "ab" : "aBcDeF[`{@\xC1\xE1\n", i % 2 ? 2U : 13U});
      const std::string drawn =
          RandomText(rng, i % 3 ? 5 : 40, {i % 2 ? "ab" : "aBc[`{\xE1", i % 2 ? 2U : 7U}) + "a";
      const std::string text = fold ? Lowered(drawn) : drawn, block = fold ? Lowered(bytes) : bytes;
      const char* const begin = fenced.Put(bytes, rng() % 2);
      TBlockFinder finder(text, fold);
      const auto place = [begin](const char* hit) {
        return hit ? static_cast<size_t>(hit - begin) : std::string::npos;
      };
      ASSERT_EQ(block.find(text), place(finder.First(begin, begin + bytes.size()))) << bytes << ": " << text;
      ASSERT_EQ(block.rfind(text), place(finder.Last(begin, begin + bytes.size()))) << bytes << ": " << text;
    }
  }
  finderForm = usual;
}

TEST(BlockFinder, GivesUpWhatWouldTakeTooLong) {
  const std::string text(30000, 'a');
  std::string block;
  while (block.size() < 500000) block += text.substr(10) + "-";
  for (const bool backward : {false, true}) {
    TBlockFinder finder(text, false);
    EXPECT_EQ(nullptr, backward ? finder.Last(&block[0], &block[0] + block.size())
                                : finder.First(&block[0], &block[0] + block.size()));
    EXPECT_TRUE(finder.GaveUp());
  }
}

}  // namespace
