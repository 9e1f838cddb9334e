// raw: any command with any parameters, and all that goes over the wire.
#include <string.h>

#include "client/text.h"
#include "client/wirecommands.h"
#include "protocol/tav_const.h"
#include "tavctl/commands.h"

#include <fmt/core.h>

namespace {

constexpr size_t kBytesPerLine = 16;

// The proof is made from the password alone, so it is shown to nobody who did not ask for secrets.
constexpr size_t kProofAt = OFFSET_PSWD + SIZELEN_PSWD - 1;

void AddHex(const char* name, const std::string& bytes, size_t hiddenFrom, size_t hiddenTo, TResult& result) {
  TTable table{name, {{"line", "", TUnit::kNone}}, {}};
  table.rows.push_back({fmt::format("{}, {} bytes:", name, bytes.size())});
  for (size_t at = 0; at < bytes.size(); at += kBytesPerLine) {
    std::string hex, text;
    for (size_t i = at; i < std::min(at + kBytesPerLine, bytes.size()); ++i) {
      const bool hidden = i >= hiddenFrom && i < hiddenTo;
      const auto byte = static_cast<unsigned char>(bytes[i]);
      hex += hidden ? "** " : fmt::format("{:02x} ", byte);
      text += hidden ? '*' : byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
    }
    table.rows.push_back({fmt::format("{:08x}  {:48} {}", at, hex, text)});
  }
  result.tables.push_back(table);
}

std::vector<std::string> Lines(const std::string& text, bool secrets) {
  std::vector<std::string> lines = SplitLines(text);
  for (std::string& line : lines)
    if (!secrets && line.compare(0, 9, "Password=") == 0) line = "Password=********";
  return lines;
}

void AddText(const char* name, const std::string& text, bool secrets, TResult& result) {
  TTable table{name, {{"line", "", TUnit::kNone}}, {}};
  // The lone carriage return that closes every reply says nothing.
  const bool closed = text.size() > 1 && text.compare(text.size() - 2, 2, "\n\r") == 0;
  for (std::string& line : Lines(closed ? text.substr(0, text.size() - 1) : text, secrets))
    table.rows.push_back({std::move(line)});
  result.tables.push_back(table);
}

bool CheckParams(const TArgs& args, TParams& params, TFailure& failure) {
  for (const std::string& line : args.List("PARAM")) {
    if (args.Text("NAME") == "SetSettings" && Trimmed(line).compare(0, 8, "Password") == 0)
      return Fail(failure, TKind::kUsage, "a password does not belong on the command line",
                  "use 'settings set --new-password-file FILE'");
    params.Raw(line);
  }
  return params.Finish(failure);
}

// What changes a host without a way back that the agent itself would offer.
bool RawChanges(const TArgs& args, bool) {
  const std::string name = args.Text("NAME");
  for (const char* wire : {"QUIT", "ReloadApp", "SetSettings", "UpgradeCode"})
    if (name == wire) return true;
  return name.compare(0, 4, "ACT-") == 0;
}

// For completion; lives as long as the program.
const char* WireWords() {
  static const std::string words = [] {
    std::string all;
    for (const TWireCommand& command : WireCommands()) all += (all.empty() ? "" : " ") + std::string(command.name);
    return all;
  }();
  return words.c_str();
}

void RunRaw(TContext& context, const TArgs& args, TOutcome& outcome) {
  const std::string name = args.Text("NAME");
  if (FindWireCommand(name) == nullptr)
    Note(context.view, "tavctl: '" + name + "' is no command of this version's agents; sent all the same");
  TParams params;
  if (!CheckParams(args, params, outcome.failure)) return;
  TReply reply;
  TTrace trace;
  const bool answered =
      context.agent->Ask(name, params, reply, outcome.failure, args.Milliseconds("--wait", 120000), &trace);
  const bool secrets = args.Has("--show-secrets");
  const bool plain = context.view.format == TFormat::kPlain;
  if (!plain) AddText("request", trace.request, secrets, outcome.result);
  if (!trace.reply.empty()) AddText("reply", trace.reply, secrets, outcome.result);
  if (args.Has("--hex")) {
    const size_t hidden = secrets ? 0 : kProofAt;
    AddHex("request packet", trace.requestPacket, hidden, secrets ? 0 : kProofAt + kProofSize, outcome.result);
    if (!trace.replyPacket.empty()) AddHex("reply packet", trace.replyPacket, 0, 0, outcome.result);
  }
  explicit_bzero(trace.reply.data(), trace.reply.size());
  if (!answered) return;
  if (!reply.Ok()) outcome.failure = ExplainAnswer(name, reply.code, reply.lines);
}

}  // namespace

std::vector<TCommandRow> RawCommands() {
  const TArgKind text = TArgKind::kText, flag = TArgKind::kFlag;
  return {
      Custom("raw", "Send any command and show request and reply",
             {{"NAME", text, "the command's name on the wire", WireWords()},
              {"[PARAM...]", text, "its parameters, a line each; behind -- if one begins with a hyphen"},
              {"--hex", flag, "show the packets, too"},
              {"--wait", TArgKind::kSeconds, "give the agent so long (120)"},
              {"--show-secrets", flag, "do not hide the password and its proof"}},
             RunRaw)
          .Changes(RawChanges),
  };
}
