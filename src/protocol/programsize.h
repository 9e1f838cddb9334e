// How large a program may be that an agent takes in its own place; a client asks before it sends one.
#pragma once

inline constexpr long long kSmallestProgram = 101;      // bytes
inline constexpr long long kLargestProgram = 0x9FFFFF;  // bytes
