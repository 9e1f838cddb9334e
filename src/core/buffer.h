// The memory behind texts that may be secret: nothing of it is left to be found when it is let go of.
//
// A large buffer is made of pages of its own: to grow it moves none of its bytes, and pages come from the system
// zeroed and are zeroed again before anybody else gets them.
#pragma once

#include <limits.h>

inline constexpr int kPage = 4096;
inline constexpr int kPagesFrom = 32 * kPage;  // bytes; from here on a buffer is made of pages

// A buffer of `size` bytes (at least 1) with the old one's content, zeros behind it.  The old buffer is gone; null
// and 0 when there was none.  Returns null when there is no memory, with the old buffer as it was.
char* ResizeBuffer(char* old, int oldSize, int size);

// Overwrites and frees; null does nothing.
void FreeBuffer(char* buffer, int size);

inline constexpr int kLongestBuffer = INT_MAX - 2 * kPage;
// The capacity for n bytes or slots: always more than n, in steps of 128, of whole pages from kPagesFrom on.
int CapacityFor(int n);
// How many to ask room for when n must fit and `capacity` is there: n while small, then half as much again, so that
// a reply of a hundred thousand lines is not copied a hundred thousand times.
int GrownSize(int n, int capacity);
