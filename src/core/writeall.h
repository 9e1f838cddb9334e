// Writing the whole of something to a descriptor.
#pragma once

// Continues over short writes and signals.  False with errno when not all n bytes went out.  The descriptor blocks.
bool WriteAll(int fd, const char* bytes, long long n);
