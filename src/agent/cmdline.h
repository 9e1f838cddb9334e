// The command line:  tav [-d|-i] [-v|-vd] [-p <port>] <cfg_file>
#pragma once

#include "config/settings.h"

// Prints the banner.
void ShowBanner();
// Fills the run mode, the port and the configuration path.  The order of the switches is fixed; what follows the
// path is ignored.  On a mistake prints the usage and ends the process with status 1.
void ParseCommandLine(int argc, char** argv, TTAVSettings& settings);
// Prints `text`, a blank line and the usage, and ends the process with status 1.
[[noreturn]] void showhelp(const char* text);
