// What can go wrong, as the user meets it: every failure has a kind, and the kind has its word, its exit status and
// the advice that is given when nothing better is known.
#pragma once

#include <string>
#include <vector>

enum class TKind {
  kOk,
  kAgent,        // the agent answered, but not with "200"
  kUsage,        // the command line
  kUndecodable,  // a reply that makes no sense
  kInput,        // a file that the command needs
  kUnknownHost,
  kUnreachable,
  kInternal,
  kTimeout,
  kClosed,       // the connection ended without a reply
  kSwitchedOff,  // the agent's settings do not allow it
  kConfig,       // our own configuration, the password foremost
  kSkipped,      // not asked, because others failed
};

struct TFailure {
  TKind kind = TKind::kOk;
  std::string text;
  std::string hint;
  std::string code;  // the agent's; empty when it did not answer
};

// Sets `failure` and returns false, so that a refusal is one line at the place where it is found.  Without a hint
// the kind's own advice stands.
bool Fail(TFailure& failure, TKind kind, const std::string& text, const std::string& hint = "");

const char* KindWord(TKind kind);
const char* KindHint(TKind kind);
int ExitStatus(TKind kind);

// Sorts an answer other than "200": which kind it is, what it says and what to do about it.  `wire` is the wire
// name of the command, `lines` what the agent put behind the code.
TFailure ExplainAnswer(const std::string& wire, const std::string& code, const std::vector<std::string>& lines);
