// What Twofish_initialise() proves on every start; a failure ends the process through Twofish_fatal().
#pragma once

// The word helpers that the cipher stands on.  Needs no tables.
void Twofish_check_platform();
// Single blocks, the iterated sequences of the paper, and the padding of keys.  Needs the tables.
void Twofish_check_cipher();
