// The files that a program run for a test leaves its output in.
#pragma once

#include "core/closers.h"
#include "core/tempregister.h"

// Gives the file a name that nothing has, in the agent's temporary folder; it does not outlive the object or the
// process.  False when there is none to be had.
bool TakeUniqueName(TTempFile& file);
// The same with a name of the thread's own: `format` has one "%ld", for the thread's number.
bool TakeThreadName(TTempFile& file, const char* format);

// The results for reading; null when there are none, or they are not ours.
TFile OpenResults(const char* path);
