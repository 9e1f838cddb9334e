// Proof at every start that the encryption does what it should on this machine.
#pragma once

// Each prints its line, "Ok" or "Error" at its end, and returns whether it passed.  A fault in the cipher's own
// tests ends the process with status 3.
bool TestBasicEncryption();
bool TestPacketEncryption();
