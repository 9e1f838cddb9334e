#include "client/text.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cmath>
#include <map>

#include <fmt/core.h>

#include <iterator>

namespace {

// Length of the well-formed UTF-8 sequence at `p`, and its code point; 0 when there is none.
size_t Sequence(const unsigned char* p, size_t left, unsigned& code) {
  const unsigned char lead = p[0];
  const size_t length = lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
  if (length == 0 || length > left) return 0;
  code = lead & (0x7Fu >> length);
  for (size_t i = 1; i < length; ++i) {
    if ((p[i] & 0xC0) != 0x80) return 0;
    code = code << 6 | (p[i] & 0x3Fu);
  }
  const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
  const bool outside = code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF);
  return overlong || outside ? 0 : length;
}

// Controls of the second table, and the marks that turn the direction of what follows them.
bool Treacherous(unsigned code) {
  return code < 0xA0 || code == 0x061C || code == 0xFEFF || (code >= 0x200B && code <= 0x200F) ||
         (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069) || code == 0x2028 ||
         code == 0x2029;
}

void AppendEscape(std::string& out, unsigned char c) {
  if (c == '\n')
    out += "\\n";
  else if (c == '\r')
    out += "\\r";
  else if (c == '\t')
    out += "\\t";
  else
    out += fmt::format("\\x{:02x}", c);
}

}  // namespace

std::string Bytes(const String& s) {
  return s.Length() == 0 ? std::string() : std::string(s.Data(), static_cast<size_t>(s.Length()));
}

String ToString(const std::string& s) {
  return s.empty() ? String() : String(s.data(), static_cast<int>(s.size()));
}

std::string Visible(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  for (size_t i = 0; i < text.size();) {
    if (p[i] >= 0x20 && p[i] < 0x7F) {
      out += text[i++];
      continue;
    }
    unsigned code = 0;
    const size_t length = p[i] < 0x80 ? 0 : Sequence(p + i, text.size() - i, code);
    if (length != 0 && !Treacherous(code)) {
      out.append(text, i, length);
      i += length;
      continue;
    }
    const size_t bytes = length == 0 ? 1 : length;
    for (size_t k = 0; k < bytes; ++k) AppendEscape(out, p[i + k]);
    i += bytes;
  }
  return out;
}

std::string SizeText(long long bytes) {
  static const char* const kUnits[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  if (bytes > -1024 && bytes < 1024) return fmt::format("{} byte{}", bytes, bytes == 1 ? "" : "s");
  double value = static_cast<double>(bytes) / 1024;
  size_t unit = 0;
  // What would be rounded to 1024.0 belongs to the next unit.
  for (; std::abs(value) >= 1023.95 && unit + 1 < std::size(kUnits); ++unit) value /= 1024;
  return fmt::format("{:.1f} {}", value, kUnits[unit]);
}

std::string DurationText(long long seconds) {
  const char* sign = seconds < 0 ? "-" : "";
  const long long s = seconds < 0 ? -seconds : seconds;
  if (s < 60) return fmt::format("{}{} s", sign, s);
  if (s < 3600)
    return s % 60 == 0 ? fmt::format("{}{} min", sign, s / 60) : fmt::format("{}{} min {} s", sign, s / 60, s % 60);
  if (s < 86400) return fmt::format("{}{} h {} min", sign, s / 3600, s % 3600 / 60);
  return fmt::format("{}{} d {} h", sign, s / 86400, s % 86400 / 3600);
}

std::string NumberText(long long number) {
  std::string text = std::to_string(number);
  const size_t first = number < 0 ? 1 : 0;
  for (size_t i = text.size(); i > first + 3;) {
    i -= 3;
    text.insert(i, ",");
  }
  return text;
}

std::string MillisecondsText(double ms) {
  return ms < 1000 ? fmt::format("{:.1f} ms", ms) : fmt::format("{:.2f} s", ms / 1000);
}

size_t Width(const std::string& text) {
  size_t width = 0;
  for (const char c : text)
    if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++width;
  return width;
}

std::string Padded(const std::string& text, size_t width, bool right) {
  const size_t own = Width(text);
  if (own >= width) return text;
  const std::string blanks(width - own, ' ');
  return right ? blanks + text : text + blanks;
}

bool ParseNumber(const std::string& text, long long& number) {
  const std::string digits = Trimmed(text);
  const size_t first = !digits.empty() && digits[0] == '-' ? 1 : 0;
  if (digits.size() == first || digits.find_first_not_of("0123456789", first) != std::string::npos) return false;
  errno = 0;
  number = strtoll(digits.c_str(), nullptr, 10);
  return errno == 0;
}

bool ParseSeconds(const std::string& text, double& seconds) {
  static const std::map<char, double> kUnits = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}};
  const auto unit = text.empty() ? kUnits.end() : kUnits.find(text.back());
  const std::string digits = unit == kUnits.end() ? text : text.substr(0, text.size() - 1);
  if (digits.empty() || digits.size() > 12 || digits.find_first_not_of("0123456789.") != std::string::npos)
    return false;
  char* end = nullptr;
  const double value = strtod(digits.c_str(), &end) * (unit == kUnits.end() ? 1 : unit->second);
  if (*end != '\0' || end == digits.c_str() || value > 86400) return false;
  seconds = value;
  return true;
}

bool ParseScaled(const std::string& text, const std::string& units, long long& number) {
  long long factor = 1;
  std::string digits = text;
  const size_t unit = text.empty() || isdigit(static_cast<unsigned char>(text.back())) ? std::string::npos
                                                                                       : units.find(text.back());
  if (unit != std::string::npos) {
    factor = atoll(units.c_str() + unit + 1);
    digits.pop_back();
  }
  if (digits.empty() || digits.size() > 12 || digits.find_first_not_of("0123456789") != std::string::npos)
    return false;
  number = atoll(digits.c_str()) * factor;
  return true;
}

bool ParsePort(const std::string& text, int& port) {
  long long number = 0;
  if (text.empty() || text[0] == ' ' || !ParseNumber(text, number) || number < 1 || number > 65535) return false;
  port = static_cast<int>(number);
  return true;
}

bool ParseWhen(const std::string& digits, std::string& iso) {
  if (digits.size() != 14 || digits.find_first_not_of("0123456789") != std::string::npos) return false;
  const auto part = [&](size_t from, size_t count) { return digits.substr(from, count); };
  iso = part(4, 4) + "-" + part(2, 2) + "-" + part(0, 2) + " " + part(8, 2) + ":" + part(10, 2) + ":" + part(12, 2);
  return true;
}

std::string Trimmed(const std::string& text) {
  static const char* const kBlanks = " \t\r\n";
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string Lower(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return text;
}

namespace {

// Letters to be changed, added, dropped or swapped with their neighbour to make one of the other.
size_t Distance(const std::string& a, const std::string& b) {
  std::vector<std::vector<size_t>> d(a.size() + 1, std::vector<size_t>(b.size() + 1));
  for (size_t i = 0; i <= a.size(); ++i) {
    for (size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        d[i][j] = i + j;
        continue;
      }
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
      const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (swapped) d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
    }
  }
  return d[a.size()][b.size()];
}

}  // namespace

std::string Nearest(const std::string& text, const std::vector<std::string>& candidates) {
  std::string nearest;
  size_t best = 3;
  if (text.size() > 40) return nearest;
  for (const std::string& candidate : candidates) {
    const size_t distance = Distance(text, candidate);
    if (distance >= best || distance * 2 >= std::max(text.size(), candidate.size())) continue;
    best = distance;
    nearest = candidate;
  }
  return nearest;
}

bool IsUtf8(const std::string& text) {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  for (size_t i = 0; i < text.size();) {
    unsigned code = 0;
    const size_t length = p[i] < 0x80 ? 1 : Sequence(p + i, text.size() - i, code);
    if (length == 0) return false;
    i += length;
  }
  return true;
}

std::string Base64(const std::string& bytes) {
  static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    unsigned group = 0;
    for (size_t k = 0; k < 3; ++k)
      group = group << 8 | (i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0u);
    for (size_t k = 0; k < 4; ++k) out += i + k > bytes.size() ? '=' : kDigits[group >> (18 - 6 * k) & 63];
  }
  return out;
}
