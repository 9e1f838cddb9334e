// The arguments of a command: how a row of the command table declares them, and what the command line gave.
#pragma once

#include <map>
#include <string>
#include <vector>

enum class TArgKind {
  kFlag,
  kText,
  kName,      // a text that is not empty
  kNumber,    // from 0
  kCount,     // from 1
  kSeconds,   // all three take s, m, h or d behind the number
  kPatience,  // seconds, more than 0
  kMinutes,
  kSize,  // bytes; takes k, M or G behind the number
  kPort,
  kInputFile,  // "-" is standard input
  kOutputFile,
};

// `spelling` is "-r,--recurse" for an option, "PATH" for an argument that must be there, "[MASK]" for one that may
// be left out, and "ARG..." or "[ARG...]" for one that repeats.
struct TArgRow {
  const char* spelling;
  TArgKind kind;
  const char* help;
  const char* choices = "";  // the words that fit, parted by blanks; empty: anything, or other than these, too
  bool only = false;         // nothing but these words
};

bool IsOption(const TArgRow& row);
bool IsOptional(const TArgRow& row);
bool Repeats(const TArgRow& row);
std::string KeyOf(const TArgRow& row);  // "--recurse", "MASK", "ARG"

// Values by key.  A value has passed the check of its kind before it comes here.
class TArgs {
 public:
  void Set(const std::string& key, std::vector<std::string> given) { values[key] = std::move(given); }

  bool Has(const std::string& key) const { return values.count(key) != 0; }
  std::string Text(const std::string& key, const std::string& otherwise = "") const;
  long long Number(const std::string& key, long long otherwise) const;
  long long Milliseconds(const std::string& key, long long otherwise) const;  // of an argument in seconds
  const std::vector<std::string>& List(const std::string& key) const;

 private:
  std::map<std::string, std::vector<std::string>> values;
};

// Brings a value into the plain form that the readers above expect: seconds, minutes and bytes without a unit.
// Returns why it cannot stand there; empty when it can.
std::string PlainArg(const TArgRow& row, std::string& value);
// What the help shows in a value's place.
const char* PlaceholderOf(TArgKind kind);
