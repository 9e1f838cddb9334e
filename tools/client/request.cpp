#include "client/request.h"

#include "client/text.h"
#include "core/cmdline_split.h"
#include "protocol/tav_const.h"

namespace {

// The agent trims every value it reads: blanks, controls and, since it compares signed bytes, all beyond ASCII.
bool TrimmedByAgent(char c) {
  return static_cast<signed char>(c) <= 32;
}

}  // namespace

void TParams::Refuse(const std::string& text, const std::string& hint) {
  if (fault.kind == TKind::kOk) Fail(fault, TKind::kUsage, text, hint);
}

void TParams::Set(int position, const std::string& line) {
  const auto count = static_cast<size_t>(position);
  if (lines.size() < count) lines.resize(count);
  lines[count - 1] = line;
}

void TParams::CheckEnds(const std::string& value) {
  if (value.empty() || (!TrimmedByAgent(value.front()) && !TrimmedByAgent(value.back()))) return;
  Refuse("'" + Visible(value) + "' would not arrive whole",
         "agents drop blanks, control characters and bytes beyond ASCII at both ends of a value; for a file, a "
         "wildcard "
         "(?) can stand there in most commands");
}

void TParams::Text(int position, const std::string& value) {
  if (value.find_first_of("\r\n") != std::string::npos)
    Refuse("'" + Visible(value) + "' holds a line break, which would end the parameter",
           "leave the line break out");
  CheckEnds(value);
  Set(position, value);
}

void TParams::Encoded(int position, const std::string& value) {
  if (value.empty()) return Set(position, "");
  const String encoded = tavEncodeStrings(value.data(), static_cast<int>(value.size()));
  const std::string line = Bytes(encoded);
  CheckEnds(line);
  Set(position, line);
}

void TParams::Raw(const std::string& line) {
  if (line.find_first_of("\r\n") != std::string::npos)
    Refuse("'" + Visible(line) + "' holds a line break, which would end the parameter",
           "write it as %0A or %0D if this parameter is a multi-line one");
  lines.push_back(line);
}

bool TParams::Finish(TFailure& failure) const {
  if (fault.kind == TKind::kOk) return true;
  failure = fault;
  return false;
}

std::string TParams::RequestText(const std::string& wire) const {
  std::string text = wire + "\r\n";
  for (const std::string& line : lines) text += line + "\r\n";
  return text;
}

bool JoinCommand(const std::vector<std::string>& words, std::string& commandLine, TFailure& failure) {
  if (words.size() > kMaxArguments)
    return Fail(failure, TKind::kUsage, "the agent takes at most 23 words on a command line",
                "put the command into a file and send it with 'script'");
  commandLine.clear();
  for (const std::string& word : words) {
    const bool needsQuotes =
        word.empty() || word[0] == '\'' || word[0] == '"' || word.find_first_of(" \t") != std::string::npos;
    const char quote = word.find('"') == std::string::npos ? '"' : '\'';
    if (needsQuotes && word.find(quote) != std::string::npos)
      return Fail(failure, TKind::kUsage, "'" + Visible(word) + "' holds blanks and quotes of both kinds",
                  "the agent has no escape for that; put the command into a file and send it with 'script'");
    if (!commandLine.empty()) commandLine += ' ';
    commandLine += needsQuotes ? quote + word + quote : word;
  }
  if (commandLine.size() >= kArgumentsSize)
    return Fail(failure, TKind::kUsage, "the agent takes at most 1023 bytes on a command line",
                "put the command into a file and send it with 'script'");
  return true;
}
