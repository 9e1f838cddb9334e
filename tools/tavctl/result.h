// What a command found, independent of how it is shown: named values and tables of them.  No I/O.
#pragma once

#include <functional>
#include <string>
#include <variant>
#include <vector>

#include "client/failures.h"

// How a value is shown to people; plain and JSON output carry the bare value.
enum class TUnit { kNone, kBytes, kCount, kMilliseconds, kMinutes, kPercent, kOnOff, kYesNo, kHex32 };

using TValue = std::variant<std::string, long long, double, bool>;

struct TField {
  std::string name;   // key in JSON output; part of the stable schema
  std::string label;  // for people
  TValue value;
  TUnit unit = TUnit::kNone;
  std::string shown;  // for people, where the value and its unit say less
};

struct TColumn {
  std::string name;
  std::string label;
  TUnit unit = TUnit::kNone;
};

struct TTable {
  std::string name;  // key of the array in JSON output
  std::vector<TColumn> columns;
  std::vector<std::vector<TValue>> rows;
  size_t shown = 0;  // so many columns are for people; 0: all
};

struct TResult {
  std::vector<TField> fields;
  std::vector<TTable> tables;
  std::string note;      // said beside it to people
  std::string headline;  // people read this line first
  bool named = false;    // plain output carries NAME=VALUE instead of the value alone

  void Add(const char* name, const char* label, TValue value, TUnit unit = TUnit::kNone) {
    fields.push_back({name, label, std::move(value), unit, ""});
  }
};

struct TOutcome {
  TFailure failure;  // kind kOk: it went well
  double elapsedMs = 0;
  TResult result;
  int status = -1;       // exit status in place of 0 when all went well; -1: none
  bool printed = false;  // the command has written its output itself

  // Called once the outcome has been written out, also that of a failure, for what must not happen before.
  std::function<bool(TFailure&)> commit;

  bool Ok() const { return failure.kind == TKind::kOk; }
};
