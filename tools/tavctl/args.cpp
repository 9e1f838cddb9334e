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

namespace {

std::string Quoted(const std::string& value) {
  return ", not '" + Visible(value) + "'";
}

std::string PlainNumber(long long from, const std::string& value) {
  long long number = 0;
  const bool good = !value.empty() && value[0] != ' ' && ParseNumber(value, number);
  if (good && number >= from && number <= 0x7FFFFFFF) return "";
  return "a number from " + std::to_string(from) + " to 2147483647 is needed" + Quoted(value);
}

std::string PlainSeconds(bool zeroToo, std::string& value) {
  double seconds = 0;
  if (!ParseSeconds(value, seconds) || (!zeroToo && seconds < 0.001))
    return std::string("seconds are needed (") + (zeroToo ? "" : "more than 0, ") + "at most a day; 5m and 2h do" +
           ")" + Quoted(value);
  value = std::to_string(seconds);
  return "";
}

std::string PlainScaled(const char* units, const char* needed, std::string& value) {
  long long number = 0;
  if (!ParseScaled(value, units, number) || number > 0x7FFFFFFF) return needed + Quoted(value);
  value = std::to_string(number);
  return "";
}

bool HasWord(const std::string& words, const std::string& word) {
  return (" " + words + " ").find(" " + word + " ") != std::string::npos;
}

}  // namespace

std::string PlainArg(const TArgRow& row, std::string& value) {
  int port = 0;
  if (row.only && !HasWord(row.choices, value)) return std::string("one of ") + row.choices + Quoted(value);
  switch (row.kind) {
    case TArgKind::kNumber:
      return PlainNumber(0, value);
    case TArgKind::kCount:
      return PlainNumber(1, value);
    case TArgKind::kSeconds:
      return PlainSeconds(true, value);
    case TArgKind::kPatience:
      return PlainSeconds(false, value);
    case TArgKind::kMinutes:
      return PlainScaled("m1 h60 d1440", "whole minutes are needed (2h and 3d do)", value);
    case TArgKind::kSize:
      return PlainScaled("k1024 K1024 M1048576 G1073741824", "bytes are needed, at most 2147483647 (4k and 2M do)",
                         value);
    case TArgKind::kPort:
      return ParsePort(value, port) ? "" : "a port from 1 to 65535 is needed" + Quoted(value);
    case TArgKind::kName:
    case TArgKind::kInputFile:
    case TArgKind::kOutputFile:
      return value.empty() ? "it is empty" : "";
    case TArgKind::kFlag:
    case TArgKind::kText:
      break;
  }
  return "";
}

const char* PlaceholderOf(TArgKind kind) {
  switch (kind) {
    case TArgKind::kNumber:
    case TArgKind::kCount:
      return "N";
    case TArgKind::kSeconds:
    case TArgKind::kPatience:
      return "SECONDS";
    case TArgKind::kMinutes:
      return "MINUTES";
    case TArgKind::kSize:
      return "BYTES";
    case TArgKind::kPort:
      return "PORT";
    case TArgKind::kInputFile:
    case TArgKind::kOutputFile:
      return "FILE";
    default:
      return "TEXT";
  }
}
