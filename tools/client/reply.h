// A reply as it came, and a reader that takes its parameters apart.  No I/O.
#pragma once

#include <string>
#include <vector>

#include "client/failures.h"

struct TReply {
  std::string code;
  std::vector<std::string> lines;  // behind the code
  double elapsedMs = 0;

  TReply() = default;
  TReply(const TReply&) = default;
  TReply& operator=(const TReply&) = default;
  ~TReply();  // wipes: a reply may carry the password

  bool Ok() const { return code == "200"; }
};

// Splits a decrypted reply: a code of three digits, lines, and a carriage return behind the last.
bool ParseReply(const std::string& text, TReply& reply, TFailure& failure);

// Reads parameters in order.  The first that is missing or malformed makes the whole reply undecodable; the reads
// behind it give zeros.
class TReader {
 public:
  explicit TReader(const TReply& from) : reply(from) {}

  std::string Text(const char* what);
  std::string Decoded(const char* what);  // "%0A" and "%0D" as line breaks
  long long Number(const char* what);
  double Real(const char* what);
  bool Flag(const char* what);
  std::string When(const char* what);  // "2009-03-05 14:07:09", the host's local time
  // False when a read went wrong.
  bool Finish(TFailure& failure) const;

 private:
  bool Next(const char* what, std::string& line);
  void Fault(const char* what, const std::string& line);

  const TReply& reply;
  size_t next = 0;
  std::string fault;
};

// Lines of a text whose line breaks are CR LF or LF; no empty line behind the last break.
std::vector<std::string> SplitLines(const std::string& text);
