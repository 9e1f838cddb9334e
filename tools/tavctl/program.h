// What a program file is made for, told by its ELF header.  No I/O.
#pragma once

#include <string>

#include "client/failures.h"

// Refuses what is no program for a machine like this one: an ELF executable of our own class, byte order and
// processor.  Agents check nothing of it, and one that cannot start leaves its host without an agent.
bool CheckProgram(const std::string& content, const std::string& name, TFailure& failure);
// "64-bit ELF for x86-64", "no ELF file", ...
std::string DescribeProgram(const std::string& content);
