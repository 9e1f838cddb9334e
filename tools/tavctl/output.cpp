#include "tavctl/output.h"

#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "client/reply.h"
#include "client/text.h"
#include "protocol/results.h"

#include <fmt/core.h>

namespace {

using TJson = nlohmann::ordered_json;

constexpr int kSchema = 1;

enum class TInk { kNone, kBold, kGreen, kRed, kDim };

std::string Inked(bool colour, TInk ink, const std::string& text) {
  static const char* const kCodes[] = {"", "1", "32", "31", "2"};
  if (!colour || ink == TInk::kNone || text.empty()) return text;
  return std::string("\033[") + kCodes[static_cast<int>(ink)] + "m" + text + "\033[0m";
}

TInk InkOf(const TValue& value, TUnit unit) {
  if (unit != TUnit::kOnOff && unit != TUnit::kYesNo) return TInk::kNone;
  return std::get<bool>(value) ? TInk::kGreen : TInk::kDim;
}

bool RightAligned(TUnit unit) {
  return unit == TUnit::kBytes || unit == TUnit::kCount || unit == TUnit::kMilliseconds ||
         unit == TUnit::kMinutes || unit == TUnit::kPercent;
}

// Blanks behind the last column would only trouble those who copy the text.
void AppendLine(const std::string& line, std::string& out) {
  out += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
}

void AppendFields(const TView& view, const TResult& result, std::string& out) {
  size_t width = 0;
  for (const TField& field : result.fields) width = std::max(width, Width(field.label));
  for (const TField& field : result.fields) {
    const std::string shown = field.shown.empty() ? ShownValue(field.value, field.unit, true) : field.shown;
    AppendLine(Padded(field.label, width) + "  " + Inked(view.colour, InkOf(field.value, field.unit), shown), out);
  }
}

size_t ShownColumns(const TTable& table) {
  return table.shown == 0 ? table.columns.size() : table.shown;
}

std::vector<size_t> WidthsOf(const TTable& table) {
  std::vector<size_t> widths;
  for (size_t i = 0; i < ShownColumns(table); ++i) {
    widths.push_back(Width(table.columns[i].label));
    for (const auto& row : table.rows)
      widths[i] = std::max(widths[i], Width(ShownValue(row[i], table.columns[i].unit, false)));
  }
  return widths;
}

void AppendHeader(const TView& view, const TTable& table, const std::vector<size_t>& widths, std::string& out) {
  std::string line;
  bool any = false;
  for (size_t i = 0; i < widths.size(); ++i) {
    const TColumn& column = table.columns[i];
    any = any || !column.label.empty();
    line += (i == 0 ? "" : "  ") + Padded(column.label, widths[i], RightAligned(column.unit));
  }
  if (any) out += Inked(view.colour, TInk::kBold, line.substr(0, line.find_last_not_of(' ') + 1)) + "\n";
}

void AppendTable(const TView& view, const TTable& table, std::string& out) {
  const std::vector<size_t> widths = WidthsOf(table);
  if (!table.rows.empty()) AppendHeader(view, table, widths, out);
  for (const auto& row : table.rows) {
    std::string line;
    for (size_t i = 0; i < widths.size(); ++i) {
      const TUnit unit = table.columns[i].unit;
      const std::string cell = Padded(ShownValue(row[i], unit, false), widths[i], RightAligned(unit));
      line += (i == 0 ? "" : "  ") + Inked(view.colour, InkOf(row[i], unit), cell);
    }
    AppendLine(line, out);
  }
}

std::string ForPeople(const TView& view, const TResult& result) {
  std::string out;
  if (!result.headline.empty()) out += Inked(view.colour, TInk::kBold, Visible(result.headline)) + "\n";
  AppendFields(view, result, out);
  for (const TTable& table : result.tables) {
    if (!out.empty() && !table.rows.empty()) out += "\n";
    AppendTable(view, table, out);
  }
  return out;
}

void AppendPlain(const TResult& result, const char* separator, std::string& out) {
  for (const TField& field : result.fields)
    out += (result.named ? field.name + "=" : "") + PlainValue(field.value) + separator;
  for (const TTable& table : result.tables) {
    for (const auto& row : table.rows) {
      for (size_t i = 0; i < row.size(); ++i) out += (i == 0 ? "" : "\t") + PlainValue(row[i]);
      out += separator;
    }
  }
}

// The essence on one line: the headline, or the values with their labels, and how long the lists are.
std::string Summary(const TResult& result) {
  std::string out = Visible(result.headline);
  const auto add = [&](const std::string& text) { out += (out.empty() ? "" : ", ") + text; };
  if (out.empty())
    for (const TField& field : result.fields) add(field.label + " " + ShownValue(field.value, field.unit, false));
  for (const TTable& table : result.tables)
    add(NumberText(static_cast<long long>(table.rows.size())) + " " + table.name);
  return out;
}

// The rows of all tables, set in below the host that gave them.
std::string Indented(const TView& view, const TResult& result) {
  std::string text, out;
  for (const TTable& table : result.tables) AppendTable(view, table, text);
  for (const std::string& line : SplitLines(text)) out += "  " + line + "\n";
  return out;
}

std::string PlainLine(const TOutput& report) {
  const TOutcome& outcome = *report.outcome;
  std::string out = report.target->Name() + "\t" + (outcome.Ok() ? "ok" : KindWord(outcome.failure.kind)) + "\t";
  if (!outcome.Ok()) return out + Visible(outcome.failure.text) + "\n";
  AppendPlain(outcome.result, "\t", out);
  return out.substr(0, out.find_last_not_of('\t') + 1) + "\n";
}

// One of many hosts: a line that says how it went, and below it all that was asked for.
std::string OneOfMany(const TView& view, const TOutput& report) {
  if (view.format == TFormat::kPlain) return PlainLine(report);
  const TOutcome& outcome = *report.outcome;
  const std::string word = outcome.Ok() ? "ok" : KindWord(outcome.failure.kind);
  const std::string text = outcome.Ok() ? Summary(outcome.result) : Visible(outcome.failure.text);
  return Padded(report.target->Name(), view.nameWidth) + "  " +
         Inked(view.colour, outcome.Ok() ? TInk::kGreen : TInk::kRed, Padded(word, 12)) + "  " + text + "\n" +
         Indented(view, outcome.result);
}

TJson JsonOf(const TValue& value) {
  return std::visit([](const auto& held) { return TJson(held); }, value);
}

// JSON holds UTF-8 alone; of other bytes a twin in Base64 holds all.
bool NeedsTwin(const TValue& value) {
  const auto* text = std::get_if<std::string>(&value);
  return text != nullptr && !IsUtf8(*text);
}

void Put(TJson& object, const std::string& name, const TValue& value) {
  object[name] = JsonOf(value);
  if (NeedsTwin(value)) object[name + "_base64"] = Base64(std::get<std::string>(value));
}

// Texts alone; the twin holds null where a text needs none.
void PutColumn(TJson& object, const TTable& table) {
  TJson rows = TJson::array(), twins = TJson::array();
  bool needed = false;
  for (const auto& row : table.rows) {
    rows.push_back(JsonOf(row[0]));
    const bool needs = NeedsTwin(row[0]);
    twins.push_back(needs ? TJson(Base64(std::get<std::string>(row[0]))) : TJson());
    needed = needed || needs;
  }
  object[table.name] = rows;
  if (needed) object[table.name + "_base64"] = twins;
}

void PutTable(TJson& object, const TTable& table) {
  if (table.columns.size() == 1) return PutColumn(object, table);
  TJson rows = TJson::array();
  for (const auto& row : table.rows) {
    TJson one = TJson::object();
    for (size_t i = 0; i < row.size(); ++i) Put(one, table.columns[i].name, row[i]);
    rows.push_back(one);
  }
  object[table.name] = rows;
}

TJson JsonOf(const TResult& result) {
  TJson object = TJson::object();
  for (const TField& field : result.fields) Put(object, field.name, field.value);
  for (const TTable& table : result.tables) PutTable(object, table);
  return object;
}

}  // namespace

std::string PlainValue(const TValue& value) {
  if (const auto* text = std::get_if<std::string>(&value)) return Visible(*text);
  if (const auto* number = std::get_if<long long>(&value)) return std::to_string(*number);
  if (const auto* real = std::get_if<double>(&value)) return fmt::format("{}", *real);
  return std::get<bool>(value) ? "1" : "0";
}

std::string ShownValue(const TValue& value, TUnit unit, bool exact) {
  const auto* number = std::get_if<long long>(&value);
  const auto* real = std::get_if<double>(&value);
  switch (unit) {
    case TUnit::kBytes:
      if (exact && *number >= 1024) return SizeText(*number) + " (" + NumberText(*number) + " bytes)";
      return SizeText(*number);
    case TUnit::kCount:
      return NumberText(*number);
    case TUnit::kMilliseconds:
      return real != nullptr ? MillisecondsText(*real) : std::to_string(*number) + " ms";
    case TUnit::kMinutes:
      return DurationText(*number * 60);
    case TUnit::kPercent:
      return fmt::format("{:.1f} %", *real);
    case TUnit::kOnOff:
      return std::get<bool>(value) ? "on" : "off";
    case TUnit::kYesNo:
      return std::get<bool>(value) ? "yes" : "no";
    case TUnit::kHex32:
      return fmt::format("0x{:08X} ({})", *number, *number);
    case TUnit::kNone:
      break;
  }
  return PlainValue(value);
}

std::string RenderedJson(const TOutput& report) {
  const TOutcome& outcome = *report.outcome;
  TJson object;
  object["schema"] = kSchema;
  object["host"] = report.target == nullptr ? TJson() : TJson(report.target->host);
  object["port"] = report.target == nullptr ? TJson() : TJson(report.target->port);
  object["command"] = report.command;
  const std::string code = report.target != nullptr && outcome.Ok() ? kDone : outcome.failure.code;
  object["code"] = code.empty() ? TJson() : TJson(code);
  object["ok"] = outcome.Ok();
  object["elapsed_ms"] = std::round(outcome.elapsedMs * 1000) / 1000;
  if (outcome.Ok() || !outcome.result.fields.empty() || !outcome.result.tables.empty())
    object["result"] = JsonOf(outcome.result);
  if (!outcome.Ok()) {
    TJson error;
    error["kind"] = KindWord(outcome.failure.kind);
    error["text"] = outcome.failure.text;
    error["hint"] = outcome.failure.hint;
    object["error"] = error;
  }
  // Bytes that are not UTF-8 become U+FFFD: a reader of JSON must never stumble over a file's name.
  return object.dump(-1, ' ', false, TJson::error_handler_t::replace);
}

std::string Rendered(const TView& view, const TOutput& report) {
  if (view.format == TFormat::kJson) return RenderedJson(report) + "\n";
  if (view.many) return OneOfMany(view, report);
  if (view.format == TFormat::kTable) return ForPeople(view, report.outcome->result);
  std::string out;
  AppendPlain(report.outcome->result, "\n", out);
  return out;
}

std::string RenderedFailure(const TView& view, const TOutput& report) {
  const TFailure& failure = report.outcome->failure;
  if (failure.kind == TKind::kOk || view.many || view.format == TFormat::kJson) return "";
  std::string out = Inked(view.errColour, TInk::kRed, "tavctl: ") + Visible(failure.text);
  if (!failure.code.empty()) out += " (" + failure.code + ")";
  out += "\n";
  if (!failure.hint.empty() && !view.quiet)
    out += Inked(view.errColour, TInk::kDim, "  " + Visible(failure.hint)) + "\n";
  return out;
}

bool WriteOut(const std::string& text) {
  return fwrite(text.data(), 1, text.size(), stdout) == text.size() && fflush(stdout) == 0;
}

void WriteErr(const std::string& text) {
  (void)!fwrite(text.data(), 1, text.size(), stderr);
  (void)fflush(stderr);
}
