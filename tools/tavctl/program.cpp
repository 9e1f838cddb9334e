#include "tavctl/program.h"

#include <elf.h>
#include <stddef.h>
#include <string.h>

#include "agent/upgrade.h"
#include "client/text.h"

namespace {

#if __SIZEOF_POINTER__ == 8
constexpr unsigned char kOwnClass = ELFCLASS64;
#else
constexpr unsigned char kOwnClass = ELFCLASS32;
#endif
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
constexpr unsigned char kOwnOrder = ELFDATA2LSB;
#else
constexpr unsigned char kOwnOrder = ELFDATA2MSB;
#endif

struct TMachine {
  unsigned number;
  const char* name;
};

constexpr TMachine kMachines[] = {
    {EM_X86_64, "x86-64"}, {EM_386, "x86"},     {EM_AARCH64, "ARM 64"}, {EM_ARM, "ARM"},
    {EM_RISCV, "RISC-V"},  {EM_PPC64, "POWER"}, {EM_S390, "IBM Z"},
};

// Our own header is the best witness of what this machine is.
unsigned OwnMachine() {
#if defined(__x86_64__)
  return EM_X86_64;
#elif defined(__i386__)
  return EM_386;
#elif defined(__aarch64__)
  return EM_AARCH64;
#elif defined(__arm__)
  return EM_ARM;
#elif defined(__riscv)
  return EM_RISCV;
#elif defined(__powerpc64__)
  return EM_PPC64;
#elif defined(__s390x__)
  return EM_S390;
#else
  return EM_NONE;
#endif
}

// The fields in question lie at the same places in both classes.
unsigned Half(const std::string& content, size_t at) {
  const bool little = content[EI_DATA] == ELFDATA2LSB;
  const auto first = static_cast<unsigned char>(content[at]), second = static_cast<unsigned char>(content[at + 1]);
  return little ? first | static_cast<unsigned>(second) << 8 : second | static_cast<unsigned>(first) << 8;
}

bool IsElf(const std::string& content) {
  return content.size() >= sizeof(Elf32_Ehdr) && memcmp(content.data(), ELFMAG, SELFMAG) == 0;
}

std::string MachineName(unsigned number) {
  for (const TMachine& machine : kMachines)
    if (machine.number == number) return machine.name;
  return "machine " + std::to_string(number);
}

}  // namespace

std::string DescribeProgram(const std::string& content) {
  if (!IsElf(content)) return content.compare(0, 2, "#!") == 0 ? "a script" : "no ELF file";
  const unsigned type = Half(content, offsetof(Elf32_Ehdr, e_type));
  const char* kind = type == ET_EXEC || type == ET_DYN ? "program" : "file that is no program";
  return std::string(content[EI_CLASS] == ELFCLASS64 ? "64" : "32") + "-bit ELF " + kind + " for " +
         MachineName(Half(content, offsetof(Elf32_Ehdr, e_machine)));
}

bool CheckProgram(const std::string& content, const std::string& name, TFailure& failure) {
  const auto size = static_cast<long long>(content.size());
  if (size < kSmallestProgram || size > kLargestProgram)
    return Fail(failure, TKind::kInput, "'" + name + "' has " + NumberText(size) + " bytes",
                "agents take 101 to 10,485,759 bytes; a stripped program is smaller");
  const bool fits = IsElf(content) && content[EI_CLASS] == kOwnClass && content[EI_DATA] == kOwnOrder &&
                    Half(content, offsetof(Elf32_Ehdr, e_machine)) == OwnMachine();
  const unsigned type = IsElf(content) ? Half(content, offsetof(Elf32_Ehdr, e_type)) : ET_NONE;
  if (fits && (type == ET_EXEC || type == ET_DYN)) return true;
  return Fail(failure, TKind::kInput,
              "'" + name + "' is " + DescribeProgram(content) + ", not a program for a machine like this",
              "if the agent's host differs from this one and the file is right for it, give --force");
}
