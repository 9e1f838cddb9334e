#include "client/reply.h"

#include <stdlib.h>
#include <string.h>

#include "client/text.h"
#include "protocol/tav_const.h"

TReply::~TReply() {
  for (std::string& line : lines) explicit_bzero(line.data(), line.size());
}

bool ParseReply(const std::string& text, TReply& reply, TFailure& failure) {
  const bool framed = text.size() >= 5 && text.compare(text.size() - 2, 2, "\n\r") == 0;
  const bool coded = framed && text.find_first_not_of("0123456789") == 3 && text[3] == '\n';
  if (!coded)
    return Fail(failure, TKind::kUndecodable, "the reply cannot be decoded",
                "it decrypts to noise: is this a tav agent, and does nothing stand between that changes packets?");
  reply.code = text.substr(0, 3);
  reply.lines.clear();
  for (size_t from = 4; from < text.size() - 1;) {
    const size_t end = text.find('\n', from);
    reply.lines.push_back(text.substr(from, end - from));
    from = end + 1;
  }
  return true;
}

bool TReader::Next(const char* what, std::string& line) {
  if (!fault.empty()) return false;
  if (next >= reply.lines.size()) {
    fault = std::string("the reply ends before the ") + what;
    return false;
  }
  line = reply.lines[next++];
  return true;
}

void TReader::Fault(const char* what, const std::string& line) {
  fault = std::string("the reply has '") + Visible(line) + "' where the " + what + " belongs";
}

std::string TReader::Text(const char* what) {
  std::string line;
  Next(what, line);
  return line;
}

std::string TReader::Decoded(const char* what) {
  std::string line = Text(what);
  if (line.empty()) return line;
  return Bytes(tavDecodeStrings(line.data(), static_cast<int>(line.size())));
}

long long TReader::Number(const char* what) {
  std::string line;
  long long number = 0;
  if (Next(what, line) && !ParseNumber(line, number)) Fault(what, line);
  return number;
}

double TReader::Real(const char* what) {
  std::string line;
  if (!Next(what, line)) return 0;
  const std::string digits = Trimmed(line);
  char* end = nullptr;
  const double value = strtod(digits.c_str(), &end);
  if (digits.empty() || *end != '\0') Fault(what, line);
  return value;
}

bool TReader::Flag(const char* what) {
  std::string line;
  if (!Next(what, line)) return false;
  if (line != BoolConst[0] && line != BoolConst[1]) Fault(what, line);
  return line == BoolConst[1];
}

std::string TReader::When(const char* what) {
  std::string line, iso;
  if (Next(what, line) && !ParseWhen(line, iso)) Fault(what, line);
  return iso;
}

bool TReader::Finish(TFailure& failure) const {
  return fault.empty() || Fail(failure, TKind::kUndecodable, fault);
}

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  for (size_t from = 0; from < text.size();) {
    size_t end = text.find('\n', from);
    if (end == std::string::npos) end = text.size();
    const size_t length = end > from && text[end - 1] == '\r' ? end - from - 1 : end - from;
    lines.push_back(text.substr(from, length));
    from = end + 1;
  }
  return lines;
}
