#include "client/agentinfo.h"

#include <string.h>

#include <algorithm>

#include "client/text.h"
#include "core/clock.h"

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

// The old process counts on, so a count that is not above the old one is a new process's; and one that was seen to
// be away has come back as another.
bool IsNewProcess(const TRestart& restart, const TAgentInfo& info, bool wasAway) {
  return wasAway || info.Number("OpenedConnections") <= restart.openedBefore;
}

}  // namespace

TAgentInfo::~TAgentInfo() {
  for (auto& line : lines) explicit_bzero(line.second.data(), line.second.size());
}

bool TAgentInfo::Has(const std::string& name) const {
  return std::any_of(lines.begin(), lines.end(), [&](const auto& line) { return line.first == name; });
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

bool AskInfo(const TAgent& agent, const char* wire, TAgentInfo& info, TFailure& failure) {
  TReply reply;
  if (!AskAgent(agent, wire, TParams(), reply, failure)) return false;
  info.elapsedMs = reply.elapsedMs;
  return DecodeInfo(reply, info, failure);
}

bool WaitForAgent(const TAgent& agent, long long forMs, const TRestart* restart, TAgentInfo& info,
                  TFailure& failure) {
  const long long start = MonotonicMs();
  if (agent.deadline != 0) forMs = std::min(forMs, agent.deadline - start);
  TAgent patient = agent;
  for (bool wasAway = false;;) {
    patient.timeoutMs = std::max(1LL, std::min(agent.timeoutMs, start + forMs - MonotonicMs()));
    failure = TFailure();
    info = TAgentInfo();
    const bool answered = AskInfo(patient, "GetInfo", info, failure);
    const long long passed = MonotonicMs() - start;
    if (answered && (restart == nullptr || IsNewProcess(*restart, info, wasAway))) {
      info.elapsedMs = static_cast<double>(passed);
      return true;
    }
    const TKind kind = failure.kind;
    wasAway = wasAway || kind == TKind::kUnreachable;
    if (kind == TKind::kUnknownHost || kind == TKind::kConfig) return false;
    if (passed + kAskAgainMs >= forMs) break;
    SleepUs(kAskAgainMs * 1000);
  }
  const std::string last = failure.kind == TKind::kOk ? "the old agent still answers" : failure.text;
  return Fail(failure, TKind::kTimeout,
              "no answer within " + MillisecondsText(static_cast<double>(forMs)) + "; last: " + last,
              "look at the agent's log and its console on the host, or wait longer");
}
