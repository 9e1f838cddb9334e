// The arguments of a command: how a row of the command table declares them, and what the command line gave.
#pragma once

#include <map>
#include <string>
#include <vector>

enum class TArgKind { kFlag, kText, kNumber, kSeconds, kPort, kLocalFile };

// `spelling` is "-r,--recurse" for an option, "PATH" for an argument that must be there, "[MASK]" for one that may
// be left out, and "ARG..." or "[ARG...]" for one that repeats.
struct TArgRow {
  const char* spelling;
  TArgKind kind;
  const char* help;
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

// Why `value` cannot stand for `kind`; empty when it can.
std::string ArgFault(TArgKind kind, const std::string& value);
