#include "tavctl/elf.h"

#include <ctype.h>
#include <elf.h>
#include <stddef.h>
#include <string.h>

#include <algorithm>

namespace {

struct TMachine {
  unsigned number;
  const char* name;
  const char* kernels;  // words in the names of kernels for it
};

constexpr TMachine kMachines[] = {
    {EM_X86_64, "x86-64", "amd64 x86_64"},
    {EM_386, "x86", "i386 i686 686"},
    {EM_AARCH64, "ARM 64", "arm64 aarch64"},
    {EM_ARM, "ARM", "armmp armv7l rpi"},
    {EM_RISCV, "RISC-V", "riscv64"},
    {EM_PPC64, "POWER", "powerpc64le ppc64le"},
    {EM_S390, "IBM Z", "s390x"},
};

// Reads a file's structures in its own byte order and class, never beyond its end.
class TElf {
 public:
  explicit TElf(const std::string& content) : bytes(content) {}

  bool HasHead() const { return bytes.size() >= sizeof(Elf64_Ehdr) && memcmp(bytes.data(), ELFMAG, SELFMAG) == 0; }
  bool Wide() const { return bytes[EI_CLASS] == ELFCLASS64; }
  bool Sound() const {
    const char order = bytes[EI_DATA];
    return (Wide() || bytes[EI_CLASS] == ELFCLASS32) && (order == ELFDATA2LSB || order == ELFDATA2MSB);
  }
  unsigned long long Number(unsigned long long at, unsigned size) const {
    unsigned long long value = 0;
    if (at > bytes.size() || size > bytes.size() - at) return 0;
    for (unsigned i = 0; i < size; ++i) {
      const unsigned from = bytes[EI_DATA] == ELFDATA2LSB ? size - 1 - i : i;
      value = value << 8 | static_cast<unsigned char>(bytes[at + from]);
    }
    return value;
  }
  // A field that is four bytes in one class and eight in the other, at different places.
  unsigned long long Word(unsigned long long base, unsigned narrowAt, unsigned wideAt) const {
    return Number(base + (Wide() ? wideAt : narrowAt), Wide() ? 8 : 4);
  }
  bool Inside(unsigned long long at, unsigned long long size) const {
    return at <= bytes.size() && size <= bytes.size() - at;
  }

  bool SegmentsInside() const;
  bool SectionsInside() const;

 private:
  const std::string& bytes;
};

#define AT(wide, type, field) ((wide) ? offsetof(Elf64_##type, field) : offsetof(Elf32_##type, field))

bool TElf::SegmentsInside() const {
  const bool wide = Wide();
  const unsigned long long table = Word(0, offsetof(Elf32_Ehdr, e_phoff), offsetof(Elf64_Ehdr, e_phoff));
  const unsigned long long size = Number(AT(wide, Ehdr, e_phentsize), 2),
                           count = Number(AT(wide, Ehdr, e_phnum), 2);
  if (count == 0 || size < (wide ? sizeof(Elf64_Phdr) : sizeof(Elf32_Phdr)) || !Inside(table, size * count))
    return false;
  bool loads = false;
  for (unsigned long long at = table; at < table + size * count; at += size) {
    const auto offset = Word(at, offsetof(Elf32_Phdr, p_offset), offsetof(Elf64_Phdr, p_offset));
    const auto length = Word(at, offsetof(Elf32_Phdr, p_filesz), offsetof(Elf64_Phdr, p_filesz));
    if (!Inside(offset, length)) return false;
    loads = loads || Number(at, 4) == PT_LOAD;
  }
  return loads;
}

// The table closes the file, so that a file cut short anywhere shows here.  Programs without one are left out.
bool TElf::SectionsInside() const {
  const bool wide = Wide();
  const unsigned long long table = Word(0, offsetof(Elf32_Ehdr, e_shoff), offsetof(Elf64_Ehdr, e_shoff));
  const unsigned long long size = Number(AT(wide, Ehdr, e_shentsize), 2),
                           count = Number(AT(wide, Ehdr, e_shnum), 2);
  if (table == 0) return true;
  if (!Inside(table, size * count) || (count > 0 && size < (wide ? sizeof(Elf64_Shdr) : sizeof(Elf32_Shdr))))
    return false;
  for (unsigned long long at = table; at < table + size * count; at += size) {
    if (Number(at + 4, 4) == SHT_NOBITS) continue;
    const auto offset = Word(at, offsetof(Elf32_Shdr, sh_offset), offsetof(Elf64_Shdr, sh_offset));
    const auto length = Word(at, offsetof(Elf32_Shdr, sh_size), offsetof(Elf64_Shdr, sh_size));
    if (!Inside(offset, length)) return false;
  }
  return true;
}

bool HasWord(const std::string& text, const std::string& word) {
  for (size_t at = 0; (at = text.find(word, at)) != std::string::npos; ++at) {
    const char before = at == 0 ? ' ' : text[at - 1];
    const char after = at + word.size() == text.size() ? ' ' : text[at + word.size()];
    if (isalnum(static_cast<unsigned char>(before)) == 0 && isalnum(static_cast<unsigned char>(after)) == 0)
      return true;
  }
  return false;
}

}  // namespace

std::string ElfFault(const std::string& content) {
  if (content.compare(0, 2, "#!") == 0) return "is a script";
  const TElf elf(content);
  if (!elf.HasHead() || !elf.Sound()) return "is no ELF file";
  const unsigned long long type = elf.Number(offsetof(Elf64_Ehdr, e_type), 2);
  if (type != ET_EXEC && type != ET_DYN) return "is an ELF file, but no program";
  if (!elf.SegmentsInside()) return "is cut short or damaged: its segments do not lie inside of it";
  if (!elf.SectionsInside()) return "is cut short or damaged: its sections do not lie inside of it";
  return "";
}

unsigned ElfMachine(const std::string& content) {
  const TElf elf(content);
  return elf.HasHead() ? static_cast<unsigned>(elf.Number(offsetof(Elf64_Ehdr, e_machine), 2)) : EM_NONE;
}

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

unsigned MachineIn(const std::string& kernel) {
  for (const TMachine& machine : kMachines) {
    const std::string words = machine.kernels;
    for (size_t from = 0; from < words.size();) {
      const size_t end = std::min(words.find(' ', from), words.size());
      if (HasWord(kernel, words.substr(from, end - from))) return machine.number;
      from = end + 1;
    }
  }
  return EM_NONE;
}

std::string MachineName(unsigned machine) {
  for (const TMachine& row : kMachines)
    if (row.number == machine) return row.name;
  return "machine " + std::to_string(machine);
}
