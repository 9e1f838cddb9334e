// Feeds every file of the folders given to the target once: the corpus as a test, without a fuzzer.
#include <stdint.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  int found = 0;
  for (int i = 1; i < argc; i++) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      std::cerr << entry.path() << std::endl;  // the last one named is the one that fails
      std::ifstream file(entry.path(), std::ios::binary);
      const std::basic_string<uint8_t> bytes(std::istreambuf_iterator<char>(file), {});
      found += 1 + LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
  }
  return found > 0 ? 0 : 1;
}
