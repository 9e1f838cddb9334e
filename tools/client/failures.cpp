#include "client/failures.h"

#include <string.h>

#include "client/text.h"
#include "client/wirecommands.h"
#include "config/settings_keys.h"

namespace {

struct TKindRow {
  TKind kind;
  const char* word;
  int status;
  const char* hint;
};

constexpr TKindRow kKinds[] = {
    {TKind::kOk, "ok", 0, ""},
    {TKind::kAgent, "agent", 1, ""},
    {TKind::kUsage, "usage", 64, "try 'tavctl --help', or --help behind the command"},
    {TKind::kUndecodable, "undecodable", 65, "ask with 'raw' to see the reply as it came; is this a tav agent?"},
    {TKind::kInput, "input", 66, "check the file's name and its permissions"},
    {TKind::kUnknownHost, "unknown-host", 68, "check the spelling, or give the address itself with -H"},
    {TKind::kUnreachable, "unreachable", 69, "is the agent running there, and is this its port (-p)?"},
    {TKind::kInternal, "internal", 70, "this is a fault of tavctl; please report it with the command line"},
    {TKind::kTimeout, "timeout", 75, "give it more time with -t, or see whether a firewall drops the packets"},
    {TKind::kClosed, "closed", 76,
     "wrong password, an address filter, or not a tav agent: on the host, badlogfile= tells of the filter "
     "(\"TCP connection rejected\"); of the password only a console (tav -i) or verboselogfile= of an agent "
     "started with -v tells (\"Invalid BV request received\")"},
    {TKind::kSwitchedOff, "switched-off", 77, ""},
    {TKind::kConfig, "config", 78, "see PASSWORD in tavctl(1)"},
    {TKind::kSkipped, "skipped", 1, ""},
};

const TKindRow& RowOf(TKind kind) {
  for (const TKindRow& row : kKinds)
    if (row.kind == kind) return row;
  return kKinds[0];
}

struct TAdvice {
  const char* text;  // how the agent's text begins
  const char* hint;
};

// The agent's own words are short; these say what to do about them.
constexpr TAdvice kAdvice[] = {
    {"ProcCnt script is not",
     "set proccntscript= in the agent's configuration file to a script that counts processes"},
    {"ProcCnt script doesn't", "the file that proccntscript= names is not there"},
    {"CPUUsage script is not",
     "set cpuusagescript= in the agent's configuration file to a script that prints the load"},
    {"CPUUsage script doesn't", "the file that cpuusagescript= names is not there"},
    {"ProcList script is not",
     "set proclistscript= in the agent's configuration file to a script that lists processes"},
    {"ProcList script doesn't", "the file that proclistscript= names is not there"},
    {"Script error", "the agent's helper script printed no number; run it by hand on the host"},
    {"Cannot execute script",
     "run the agent's helper script by hand: is it executable, does it end within 8 seconds?"},
    {"cannot get temp file", "the agent's tmpdir= is not usable"},
    {"Cannot create temp file", "the agent's tmpdir= is not writable, or full"},
    {"Read error", "agents cannot sum an empty file, nor one whose size is a multiple of 2048 bytes"},
    {"Cannot open file", "the agent runs as a user who may not read it, or it is not there"},
    {"I/O Error", "one of the files cannot be read, or what was sought does not stand in it"},
    {"fseek error", "agents read logs up to 2 GiB only; have this one rotated"},
    {"abnormal termination", "a signal ended it: it ran past --wait, or it crashed"},
    {"Script execution error: abnormal", "a signal ended it: it ran past --wait, or it crashed"},
    {"Wrong CRC", "the file arrived damaged; send it again"},
    {"Cannot open configuration file", "the agent cannot read its own configuration file"},
    {"Cannot create new configuration", "the agent may not write into the folder of its configuration file"},
    {"not implemented yet", "agents on this platform do not have this command"},
    {"Not applicable for UNIX/Linux", "agents on this platform do not have this command"},
};

struct TCodeRow {
  const char* code;
  const char* text;  // where the agent says nothing
  const char* hint;
};

constexpr TCodeRow kCodes[] = {
    {"300", "the agent could not do it", "the agent's log tells more"},
    {"301", "the agent could not examine it", "check the name, and that the agent's user may read it"},
    {"302", "another upgrade is in progress", "wait for it to end, or restart the agent if its sender is gone"},
    {"500", "the agent does not know this command", "it may be an older agent; 'info' shows its version"},
    {"501", "the agent could not use a parameter", "compare the parameters with tavctl(1)"},
    {"502", "the agent missed the line end of the request", "something between here and the agent cuts packets"},
};

struct TProbeRow {
  const char* number;
  const char* text;
};

constexpr TProbeRow kProbes[] = {
    {"0", "the peer closed the connection without an answer"},
    {"-2", "the agent's host does not know that name"},
    {"-3", "the agent's host has no socket left"},
    {"-4", "sending failed"},
    {"-5", "receiving failed"},
    {"-6", "connecting failed"},
};

std::string SwitchHint(const std::string& wire) {
  const TWireCommand* command = FindWireCommand(wire);
  if (command == nullptr || command->setting == nullptr) return "the agent's settings do not allow it";
  const std::string setting = command->setting;
  if (command->addresses != nullptr)
    return "on the host, set " + setting + "=1 and put this address into " + command->addresses +
           "= in the agent's configuration file, then restart it or send it SIGHUP";
  std::string hint = "on the host, set " + setting + "=1 in the agent's configuration file";
  const TSettingKey* key = FindSettingKey(command->setting);
  if (key != nullptr && key->settable)
    hint += std::string(", or from here: tavctl settings set '") + key->wire + "=1'";
  return hint;
}

// A probe's answer is a text, often empty, and the number of what failed.
std::string ProbeText(const std::vector<std::string>& lines) {
  const std::string number = lines.size() > 1 ? Trimmed(lines[1]) : "";
  if (!lines.empty() && !lines[0].empty()) return lines[0];
  for (const TProbeRow& row : kProbes)
    if (number == row.number) return row.text;
  return "the probe failed (" + number + ")";
}

bool IsProbe(const std::string& wire) {
  return wire == "TEST-TCP" || wire == "TEST-UDP";
}

std::string AnswerText(const std::string& wire, const std::string& code, const std::vector<std::string>& lines) {
  if (code == "301" && IsProbe(wire)) return ProbeText(lines);
  std::string text;
  for (const std::string& line : lines)
    if (!line.empty()) text += (text.empty() ? "" : "; ") + line;
  return text;
}

}  // namespace

bool Fail(TFailure& failure, TKind kind, const std::string& text, const std::string& hint) {
  failure.kind = kind;
  failure.text = text;
  failure.hint = hint.empty() ? KindHint(kind) : hint;
  failure.code.clear();
  return false;
}

const char* KindWord(TKind kind) {
  return RowOf(kind).word;
}
const char* KindHint(TKind kind) {
  return RowOf(kind).hint;
}
int ExitStatus(TKind kind) {
  return RowOf(kind).status;
}

TFailure ExplainAnswer(const std::string& wire, const std::string& code, const std::vector<std::string>& lines) {
  const std::string text = AnswerText(wire, code, lines);
  TFailure failure;
  if (code == "600") {
    Fail(failure, TKind::kSwitchedOff, text.empty() ? "the agent does not allow it" : text, SwitchHint(wire));
    failure.code = code;
    return failure;
  }
  failure.kind = TKind::kAgent;
  failure.code = code;
  failure.text = text;
  for (const TCodeRow& row : kCodes) {
    if (code != row.code) continue;
    if (text.empty()) failure.text = row.text;
    failure.hint = row.hint;
  }
  if (code == "301" && (IsProbe(wire) || wire == "ACT-TCPUDPsend")) {
    if (text.empty()) failure.text = "the peer could not be reached, or took no data";
    failure.hint = "the agent's host is where the peer must be reachable from; try it there";
  }
  for (const TAdvice& row : kAdvice)
    if (text.compare(0, strlen(row.text), row.text) == 0) failure.hint = row.hint;
  if (failure.text.empty()) failure.text = "the agent answered " + code;
  return failure;
}
