// Questions to whoever sits at the terminal.
#pragma once

#include "client/secrets.h"

// Shows nothing of what is typed.  Fails where there is no terminal.
bool AskForPassword(String& password, TFailure& failure);
// False, with `failure` set, unless the answer is yes; without a terminal it is no.
bool AskToGoOn(const std::string& command, const std::string& where, TFailure& failure);
