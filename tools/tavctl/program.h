// What a program file is, and whether an agent may be replaced by it.
#pragma once

#include <string>

#include "client/failures.h"

// Refuses what is no whole agent program: an ELF executable whose segments and sections lie inside the file and
// that bears the agent's mark.  One for a machine like this is run, without arguments, to see it say so: for two
// seconds at most.  Agents check nothing of it, and one that cannot start leaves its host without an agent.
bool CheckProgram(const std::string& content, const std::string& name, TFailure& failure);
// Refuses what is for another machine than the one whose `uname` text the agent reports; where that does not tell,
// than this one.
bool CheckMachine(const std::string& content, const std::string& runningOs, TFailure& failure);
// Refuses a size that no agent takes, which nothing overrules.
bool CheckProgramSize(const std::string& content, const std::string& name, TFailure& failure);
