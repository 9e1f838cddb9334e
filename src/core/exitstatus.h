// How the agent's process ends.  Service managers and start scripts go by these numbers.
#pragma once

enum TExitStatus : int {
  kExitDone = 0,        // told to end, or the daemon is started
  kExitSettings = 1,    // the command line or the settings are of no use
  kExitNoFork = 2,      // no daemon could be made
  kExitEncryption = 3,  // the cipher does not pass its tests
  kExitNotServing = 4,  // no port, or what else serving needs is short
};
