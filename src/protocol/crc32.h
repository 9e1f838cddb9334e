// CRC-32 steps: the register of the reflected polynomial 0xEDB88320 moved on over bytes, in the fastest form that
// the processor has.  The forms give the same register; they work on their arguments alone.
#pragma once

#include <stddef.h>
#include <stdint.h>

using TCrcStep = uint32_t (*)(uint32_t crc, const unsigned char* data, size_t n);

struct TCrcForm {
  const char* name;
  bool (*isThere)();  // whether this processor has what it takes
  TCrcStep step;
};

// The forms of this kind of machine, the fastest first; the last one is always there, and null ends the list.
extern const TCrcForm kCrcForms[];

// The fastest form that is there; found out once.
TCrcStep FastestCrcStep();
