// A password made ready for use: what it proves and what it opens.
#pragma once

#include "core/zostring.h"
#include "protocol/cipher.h"

// Prepared once when the password is set, then read-only; any number of threads.
struct TPasswordKeys {
  explicit TPasswordKeys(const String& password);
  TPasswordKeys(const TPasswordKeys&) = delete;
  TPasswordKeys& operator=(const TPasswordKeys&) = delete;

  String proof;       // EncodePswd(password)
  TCipherKey cipher;  // opens the session key
};
