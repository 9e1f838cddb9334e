// Files on our own side, read whole.
#pragma once

#include <string>

#include "client/failures.h"
#include "core/closers.h"

// Reads a regular file (or, for "-", standard input) of at most `limit` bytes.
bool ReadInput(const std::string& path, long long limit, std::string& content, TFailure& failure);

// A name under which `given` can be opened and read more than once: itself, or for "-" that of a private copy of
// standard input that lives as long as `copy`.
bool InputPath(const std::string& given, std::string& path, TFd& copy, TFailure& failure);

// Writes a file so that it is there whole or not at all: beside it, to the disk, then in its place.  `mode` is the
// new file's.
bool WriteWhole(const std::string& path, const std::string& content, unsigned mode, TFailure& failure);
