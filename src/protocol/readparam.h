// The values of a request's parameters, by their names in protocol/parameters.h.
//
// Any number of threads may read one request.
#pragma once

#include "protocol/bvrequest.h"

// Each takes the line without the blanks around it; a line that is not there is an empty text.
String ReadText(const BVRequest& request, int line);
String ReadLines(const BVRequest& request, int line);  // a text of several lines
int ReadFlag(const BVRequest& request, int line);      // 1 or 0
// False when the line holds more than digits and '-'; the value stays then.  An empty line is a 0.
bool ReadNumber(const BVRequest& request, int line, int& value);
bool ReadNumber(const BVRequest& request, int line, long long& value);
// The number that the line begins with, 0 without one.
int ReadLeadingNumber(const BVRequest& request, int line);
