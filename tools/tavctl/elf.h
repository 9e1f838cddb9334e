// What an ELF file says of itself.  No I/O.
#pragma once

#include <string>

// Why `content` is no whole program of a class that we can read; empty when it is one.
std::string ElfFault(const std::string& content);
// The number of its machine (EM_...); EM_NONE when it is no ELF file.
unsigned ElfMachine(const std::string& content);
// Of the machine that this program was built for.
unsigned OwnMachine();
// Of the machine that a kernel's name tells ("6.1.0-13-amd64"); EM_NONE when it does not.
unsigned MachineIn(const std::string& kernel);
std::string MachineName(unsigned machine);
