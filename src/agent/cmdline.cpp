#include "agent/cmdline.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "config/agent_status.h"
#include "core/exitstatus.h"
#include "protocol/tav_const.h"

namespace {

constexpr const char* kRule = "-------------------------------------------------------------";

// The arguments not looked at yet.
class TArguments {
 public:
  TArguments(int argc, char** argv) : next(argc > 0 ? argv + 1 : argv), left(argc > 0 ? argc - 1 : 0) {}

  // The next argument; none left ends the program.
  const char* Peek() const {
    if (left == 0) showhelp("Error\nInvalid or missed command line parameter");
    return *next;
  }
  bool Take(const char* wanted) {
    if (strcmp(Peek(), wanted) != 0) return false;
    ++next;
    --left;
    return true;
  }

 private:
  char** next;
  int left;
};

}  // namespace

void ShowBanner() {
  printf("%s\n", kRule);
  printf(" Application:  TAV (Tavisto for Belvane)\n");
  printf(" Version:      %s for %s\n", AgentStatus.AgentVersion, AgentStatus.AgentPlatform);
  printf(" Developer:    Tavisto\n");
  printf(" Web:          https://tavisto.example\n");
  printf(" Support:      support@tavisto.example\n");
  printf("%s\n", kRule);
}

void showhelp(const char* text) {
  printf("%s\n\n", text);
  printf(
      " Usage: tav [-d|-i] [-v|-vd] [-p <port>] <cfg_file>\n"
      "  -d        - daemon mode (default)\n"
      "  -i        - interactive mode\n"
      "  -v        - verbose mode\n"
      "  -vd       - verbose debugging mode\n"
      "  -p <port> - overrides TCP port number specified in cfg_file\n"
      "  cfg_file  - obligatory parameter, path to configuration file\n\n"
      " Examples:\n"
      "  tav -i -v -p 1055 /etc/tav/tav.cfg\n"
      "  tav -d ~/tav/tav.cfg\n\n");
  fflush(stdout);
  exit(kExitSettings);
}

void ParseCommandLine(int argc, char** argv, TTAVSettings& settings) {
  TArguments arguments(argc, argv);
  if (arguments.Take("-i")) {
    settings.interactive = 1;
  } else if (arguments.Take("-d")) {
    settings.interactive = 0;
  }
  if (arguments.Take("-v")) settings.verbose = 1;
  if (arguments.Take("-vd")) settings.verbose = settings.verbosedetail = 1;
  if (arguments.Take("-p")) {
    const char* port = arguments.Peek();
    settings.port = tavDecodeInt(port);
    if (settings.port <= 0 || settings.port >= 65536) showhelp("Error\nInvalid port number");
    arguments.Take(port);
  }
  strncpy(settings.cfgfile, arguments.Peek(), sizeof settings.cfgfile - 1);
  settings.cfgfile[sizeof settings.cfgfile - 1] = '\0';
}
