// The laws of the fuzz targets, over their seeds and over what comes of cutting seeds up and joining the pieces.
#include <gtest/gtest.h>

#include "fuzz/law.h"

namespace {

using TSeeds = std::vector<std::string>;

// Each piece begins or ends where a seed does, or anywhere.
std::string Joined(const TSeeds& seeds, std::mt19937& random) {
  std::string input;
  for (auto pieces = 1 + random() % 5; pieces > 0; pieces--) {
    const std::string& seed = seeds[random() % seeds.size()];
    const size_t from = random() % 2 ? random() % (seed.size() + 1) : 0;
    input += seed.substr(from, random() % 2 ? random() % 32 : 4096);
  }
  if (random() % 4 == 0) input[random() % (input.size() + 1)] = static_cast<char>(random());
  return input;
}

TEST(Laws, HoldForTheSeedsAndForWhatIsJoinedOfThem) {
  for (const auto& [name, check] : AllLaws()) {
    TSeeds inputs;
    for (const auto& entry : std::filesystem::directory_iterator(TAV_CORPUS + name))
      inputs.push_back(ReadFile(entry.path()));
    std::sort(inputs.begin(), inputs.end());
    const TSeeds seeds = inputs;
    std::mt19937 random(1);
    while (inputs.size() < 3000) inputs.push_back(Joined(seeds, random));
    for (const std::string& input : inputs) {
      checked = name + ": " + testing::PrintToString(input);
      check(input);
    }
  }
}

}  // namespace
