// Results and failures on the screen: for people, for scripts (one value a line) and as JSON (one object).
#pragma once

#include <string>

#include "client/target.h"
#include "tavctl/result.h"

enum class TFormat { kTable, kPlain, kJson };

struct TView {
  TFormat format = TFormat::kTable;
  bool colour = false;     // of standard output
  bool errColour = false;  // of standard error
  bool quiet = false;      // no notes, no advice, no progress
  bool verbose = false;
  bool many = false;     // a line for each host
  size_t nameWidth = 0;  // of the widest host's name, with `many`
};

// What is written: `target` is null for a command that asks no agent.
struct TOutput {
  std::string command;
  const TTarget* target = nullptr;
  const TOutcome* outcome = nullptr;
};

// The text for standard output; complete lines.
std::string Rendered(const TView& view, const TOutput& report);
// The text for standard error: what went wrong and what to do.  Empty where standard output says it.
std::string RenderedFailure(const TView& view, const TOutput& report);
// One object, without a line end, as Rendered gives it in JSON.
std::string RenderedJson(const TOutput& report);

// A value as scripts read it.
std::string PlainValue(const TValue& value);
// A value as people read it; `exact` adds the bytes behind a rounded size.
std::string ShownValue(const TValue& value, TUnit unit, bool exact);

// Writes all of it; false when standard output does not take it.
bool WriteOut(const std::string& text);
void WriteErr(const std::string& text);
