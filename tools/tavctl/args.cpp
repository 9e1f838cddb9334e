#include "tavctl/args.h"

#include <string.h>

#include "client/text.h"

bool IsOption(const TArgRow& row) {
  return row.spelling[0] == '-';
}
bool IsOptional(const TArgRow& row) {
  return IsOption(row) || row.spelling[0] == '[';
}
bool Repeats(const TArgRow& row) {
  return strstr(row.spelling, "...") != nullptr;
}

std::string KeyOf(const TArgRow& row) {
  const std::string spelling = row.spelling;
  if (IsOption(row)) return spelling.substr(spelling.find("--"));
  std::string key;
  for (const char c : spelling)
    if (c != '[' && c != ']' && c != '.') key += c;
  return key;
}

std::string TArgs::Text(const std::string& key, const std::string& otherwise) const {
  const auto found = values.find(key);
  return found == values.end() || found->second.empty() ? otherwise : found->second[0];
}

long long TArgs::Number(const std::string& key, long long otherwise) const {
  long long number = otherwise;
  if (Has(key)) ParseNumber(Text(key), number);
  return number;
}

long long TArgs::Milliseconds(const std::string& key, long long otherwise) const {
  double seconds = 0;
  if (!Has(key) || !ParseSeconds(Text(key), seconds)) return otherwise;
  return static_cast<long long>(seconds * 1000);
}

const std::vector<std::string>& TArgs::List(const std::string& key) const {
  static const std::vector<std::string> none;
  const auto found = values.find(key);
  return found == values.end() ? none : found->second;
}

std::string ArgFault(TArgKind kind, const std::string& value) {
  long long number = 0;
  double seconds = 0;
  int port = 0;
  switch (kind) {
    case TArgKind::kNumber:
      if (value.empty() || value[0] == '-' || !ParseNumber(value, number) || number > 0x7FFFFFFF)
        return "a number from 0 to 2147483647 is needed, not '" + value + "'";
      return "";
    case TArgKind::kSeconds:
      return ParseSeconds(value, seconds) ? "" : "seconds are needed (at most 86400), not '" + value + "'";
    case TArgKind::kPort:
      return ParsePort(value, port) ? "" : "a port from 1 to 65535 is needed, not '" + value + "'";
    case TArgKind::kFlag:
    case TArgKind::kText:
    case TArgKind::kLocalFile:
      return "";
  }
  return "";
}
