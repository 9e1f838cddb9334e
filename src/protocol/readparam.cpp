#include "protocol/readparam.h"

#include "protocol/tav_const.h"

String ReadText(const BVRequest& request, int line) {
  return request.GetParam(line, 1);
}

String ReadLines(const BVRequest& request, int line) {
  return tavDecodeStrings(ReadText(request, line));
}

int ReadFlag(const BVRequest& request, int line) {
  return tavDecodeBool(ReadText(request, line));
}

bool ReadNumber(const BVRequest& request, int line, int& value) {
  return tavDecodeInt(ReadText(request, line), &value) != 0;
}

bool ReadNumber(const BVRequest& request, int line, long long& value) {
  return tavDecodeInt64(ReadText(request, line), &value) != 0;
}

int ReadLeadingNumber(const BVRequest& request, int line) {
  return tavDecodeInt(ReadText(request, line));
}
