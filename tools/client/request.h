// The parameters of a request as they travel: one line each, by position, a value wherever the command reads one.
// No I/O.
//
//   request    := command line-end { parameter line-end }
//   line-end   := CR LF          the agent insists on a carriage return somewhere and trims what it reads
#pragma once

#include <string>
#include <vector>

#include "client/failures.h"

class TParams {
 public:
  // Each puts a value at its position (protocol/parameters.h); the first fault is kept and reported by Finish.
  void Text(int position, const std::string& value);     // as it stands; must be one line
  void Encoded(int position, const std::string& value);  // line breaks as "%0A" and "%0D"
  void Flag(int position, bool value) { Set(position, value ? "1" : "0"); }
  void Number(int position, long long value) { Set(position, std::to_string(value)); }
  void Raw(const std::string& line);  // behind what is there, unchecked but for line breaks

  // The builder's own refusal of what it was given.
  void Refuse(const std::string& text, const std::string& hint);

  bool Finish(TFailure& failure) const;
  std::string RequestText(const std::string& wire) const;

 private:
  void Set(int position, const std::string& line);
  void CheckEnds(const std::string& value);

  std::vector<std::string> lines;
  TFailure fault;
};

// Joins words into a command line that the agent splits back into the same words.  It knows quotes of both kinds
// but no escapes, takes at most 23 words and 1024 bytes, and calls no shell: what cannot be said that way is
// refused.
bool JoinCommand(const std::vector<std::string>& words, std::string& commandLine, TFailure& failure);
