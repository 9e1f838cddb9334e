#include "agentinfo.h"

#include <string.h>
#include <time.h>

#include <algorithm>
#include <chrono>

#include "text.h"

namespace {

constexpr long long kAskAgainMs = 100;

bool DecodeSwitches(const TAgentInfo& info, const char* names, const char* marks, std::vector<TSwitch>& out,
                    TFailure& failure) {
  const std::vector<std::string> list = SplitLines(info.Value(names));
  const std::string digits = info.Value(marks);
  if (digits.size() != list.size())
    return Fail(failure, TKind::kUndecodable, std::string("'") + marks + "' does not fit '" + names + "'");
  for (size_t i = 0; i < list.size(); ++i) out.push_back({list[i], digits[i] == '1'});
  return true;
}

void Pause(long long ms) {
  timespec time{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000 * 1000000)};
  (void)nanosleep(&time, nullptr);
}

// The old process counts on, so a count that is not above the old one is a new process's; and one that was seen to
// be away has come back as another.
bool IsNewProcess(const TRestart& restart, const TAgentInfo& info, bool wasAway) {
  return wasAway || info.Number("OpenedConnections") <= restart.openedBefore;
}

}  // namespace

TAgentInfo::~TAgentInfo() {
  for (auto& line : lines) explicit_bzero(line.second.data(), line.second.size());
}

std::string TAgentInfo::Value(const std::string& name) const {
  for (const auto& line : lines)
    if (line.first == name) return line.second;
  return "";
}

long long TAgentInfo::Number(const std::string& name) const {
  long long number = 0;
  ParseNumber(Value(name), number);
  return number;
}

bool DecodeInfo(const TReply& reply, TAgentInfo& info, TFailure& failure) {
  TReader reader(reply);
  for (size_t i = 0; i < reply.lines.size(); ++i) {
    // Only these three carry line breaks; a "%0A" elsewhere is part of the value.
    const std::string& raw = reply.lines[i];
    const bool encoded = raw.compare(0, 10, "Available ") == 0 || raw.compare(0, 13, "IPFilterAddr=") == 0;
    const std::string line = encoded ? reader.Decoded("line") : reader.Text("line");
    const size_t equals = line.find('=');
    if (equals == std::string::npos)
      return Fail(failure, TKind::kUndecodable, "the reply has '" + Visible(line) + "' where a name=value belongs");
    info.lines.emplace_back(line.substr(0, equals), line.substr(equals + 1));
  }
  if (info.Value("AgentVersion").empty())
    return Fail(failure, TKind::kUndecodable, "the reply tells no version of the agent");
  return DecodeSwitches(info, "Available tests", "Enabled tests", info.tests, failure) &&
         DecodeSwitches(info, "Available actions", "Enabled actions", info.actions, failure);
}

bool AskInfo(const TAgent& agent, const char* wire, TAgentInfo& info, TOutcome& outcome) {
  TReply reply;
  return AskAgent(agent, wire, TParams(), reply, outcome) && DecodeInfo(reply, info, outcome.failure);
}

bool WaitForAgent(const TAgent& agent, long long forMs, const TRestart* restart, TAgentInfo& info,
                  TOutcome& outcome) {
  const auto start = std::chrono::steady_clock::now();
  const auto passed = [&] {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
  };
  TAgent patient = agent;
  for (bool wasAway = false;;) {
    patient.timeoutMs = std::max(1LL, std::min(agent.timeoutMs, forMs - passed()));
    outcome = TOutcome();
    info.lines.clear();
    info.tests.clear();
    info.actions.clear();
    const bool answered = AskInfo(patient, "GetInfo", info, outcome);
    if (answered && (restart == nullptr || IsNewProcess(*restart, info, wasAway))) {
      outcome.elapsedMs = static_cast<double>(passed());
      return true;
    }
    wasAway = wasAway || outcome.failure.kind == TKind::kUnreachable;
    const TKind kind = outcome.failure.kind;
    if (kind == TKind::kUnknownHost || kind == TKind::kConfig) return false;
    if (passed() + kAskAgainMs >= forMs) break;
    Pause(kAskAgainMs);
  }
  const std::string last = outcome.Ok() ? "the old agent still answers" : outcome.failure.text;
  outcome.code.clear();
  return Fail(outcome.failure, TKind::kTimeout,
              "no answer within " + MillisecondsText(static_cast<double>(forMs)) + "; last: " + last,
              "look at the agent's log and its console on the host, or wait longer");
}
