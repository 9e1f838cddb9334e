// Stops the program on a mistake of our own.  What a peer sends is never asserted on: it is refused.
//
// The place is spelled out by the caller because administrators and support tools look these lines up by it; it
// names the routine's place in the published source listing, not the line in this file.
#pragma once

// Prints "<program>: <source>:<line>: <function>: Assertion `<expression>' failed." to standard error and aborts.
[[noreturn]] void AssertionFailure(const char* expression, const char* source, int line, const char* function);
