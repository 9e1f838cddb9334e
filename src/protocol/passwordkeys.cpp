#include "protocol/passwordkeys.h"

#include "protocol/tav_const.h"

TPasswordKeys::TPasswordKeys(const String& password) : proof(EncodePswd(password)), cipher(password) {}
