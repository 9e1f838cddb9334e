#include "agent/crashline.h"

#include <string.h>

#include <algorithm>

namespace {

constexpr long kSecondsOfDay = 86400;
constexpr const char* kAgent = "]\t tav\t\t ";

// Year, month and day of a day number since 1970-01-01 (H. Hinnant, "chrono-Compatible Low-Level Date Algorithms").
void CivilDate(long day, long& year, long& month, long& dayOfMonth) {
  const long z = day + 719468, era = z / 146097, dayOfEra = z - era * 146097;
  const long yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const long shifted = (5 * dayOfYear + 2) / 153;
  dayOfMonth = dayOfYear - (153 * shifted + 2) / 5 + 1;
  month = shifted < 10 ? shifted + 3 : shifted - 9;
  year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
}

void AddDate(TCrashLine& line, long day) {
  long year, month, dayOfMonth;
  CivilDate(day, year, month, dayOfMonth);
  line.Number(month, 2).Text("/").Number(dayOfMonth, 2).Text("/").Number(year, 4);
}

void AddClock(TCrashLine& line, long second) {
  line.Number(second / 3600, 2).Text(":").Number(second / 60 % 60, 2).Text(":").Number(second % 60, 2);
}

}  // namespace

TCrashLine& TCrashLine::Text(const char* text) {
  const size_t n = std::min(strlen(text), sizeof line - size);
  memcpy(line + size, text, n);
  size += n;
  return *this;
}

TCrashLine& TCrashLine::Number(long value, int digits) {
  char text[24] = {};
  for (int i = digits - 1; i >= 0; --i, value /= 10) text[i] = static_cast<char>('0' + value % 10);
  return Text(text);
}

TCrashLine ConsoleLine(long localSeconds, const char* text) {
  TCrashLine line;
  line.Text("[tav][");
  AddClock(line, localSeconds % kSecondsOfDay);
  line.Text(kAgent).Text(text);
  return line;
}

TCrashLine LogLine(long localSeconds, const char* text) {
  TCrashLine line;
  line.Text("[");
  AddDate(line, localSeconds / kSecondsOfDay);
  line.Text(" ");
  AddClock(line, localSeconds % kSecondsOfDay);
  line.Text(kAgent).Text(text);
  return line;
}
