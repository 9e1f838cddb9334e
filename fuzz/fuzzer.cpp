// Where the fuzzer enters: one program holds one target.
#include "fuzz/law.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  AllLaws().begin()->second(std::string(data, data + size));
  return 0;
}
