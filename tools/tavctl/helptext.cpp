#include "tavctl/helptext.h"

#include <algorithm>
#include <sstream>

namespace {

// Where the description begins: behind the last gap of two blanks, or where the line itself does.
size_t DescriptionOf(const std::string& line) {
  const size_t gap = line.rfind("  ");
  return gap == std::string::npos ? 0 : line.find_first_not_of(' ', gap);
}

void AppendWrapped(std::string line, size_t width, std::string& out) {
  const size_t indent = std::min(DescriptionOf(line), width / 2);
  while (line.size() > width) {
    const size_t blank = line.rfind(' ', width);
    if (blank == std::string::npos || blank <= indent) break;
    out += line.substr(0, blank) + "\n";
    line = std::string(indent, ' ') + line.substr(blank + 1);
  }
  out += line + "\n";
}

}  // namespace

std::string Wrapped(const std::string& text, size_t width) {
  std::string out;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) AppendWrapped(line, width, out);
  return out;
}
