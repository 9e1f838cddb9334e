// upgrade: sends a new program file, waits for the new agent and says what changed.
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "agent/upgrade.h"
#include "client/agentinfo.h"
#include "client/inputfiles.h"
#include "client/text.h"
#include "protocol/tav_const.h"
#include "tavctl/commands.h"
#include "tavctl/program.h"

namespace {

constexpr size_t kBlock = 64 * 1024;
// The agent reads at most 1024 bytes at a time and takes the digest only whole.  Acknowledged bytes may still wait
// in its socket, so it gets this long to read them before the digest follows; the second attempt gives it more.
constexpr long kPausesMs[] = {300, 3000};

// A bar on a terminal, nothing elsewhere.
class TProgress {
 public:
  TProgress(const TView& view, size_t size) : shown(!view.quiet && isatty(STDERR_FILENO) != 0), total(size) {}
  ~TProgress() {
    if (shown) WriteErr("\r\033[K");
  }
  void Show(size_t done) {
    constexpr size_t kWidth = 40;
    const size_t filled = total == 0 ? kWidth : done * kWidth / total;
    if (!shown || filled == last) return;
    last = filled;
    WriteErr("\r[" + std::string(filled, '#') + std::string(kWidth - filled, '.') + "] " +
             SizeText(static_cast<long long>(done)) + " of " + SizeText(static_cast<long long>(total)));
  }

 private:
  bool shown;
  size_t total, last = ~size_t{0};
};

bool ReadReply(TLink& link, const TAgent& agent, const TPacket& packet, TReply& reply, TOutcome& outcome) {
  std::string answer;
  if (!link.ReadPacket(answer, agent.timeoutMs + 30000, agent.timeoutMs, outcome.failure)) return false;
  if (!ParseReply(OpenPacket(packet, answer), reply, outcome.failure)) return false;
  if (reply.Ok()) return true;
  outcome.failure = ExplainAnswer("UpgradeCode", reply.code, reply.lines);
  return false;
}

// The digest of a password is made the same way as that of a file.
String Digest(const std::string& content) {
  return EncodePswd(ToString(content));
}

bool SendFile(TLink& link, const TContext& context, const std::string& content, TFailure& failure) {
  TProgress progress(context.view, content.size());
  for (size_t done = 0; done < content.size();) {
    const size_t block = std::min(kBlock, content.size() - done);
    if (!link.Send(content.data() + done, block, context.agent->timeoutMs, failure)) return false;
    done += block;
    progress.Show(done);
  }
  return link.Drain(context.agent->timeoutMs, failure);
}

bool Transfer(const TContext& context, const std::string& content, long pauseMs, TOutcome& outcome) {
  const TAgent& agent = *context.agent;
  TParams params;
  params.Number(1, static_cast<long long>(content.size()));
  TPacket packet;
  TLink link;
  TReply reply;
  if (!MakePacket(*agent.password, params.RequestText("UpgradeCode"), packet, outcome.failure)) return false;
  if (!link.Connect(agent.target, agent.timeoutMs, outcome.failure)) return false;
  if (!link.Send(packet.bytes.Data(), static_cast<size_t>(packet.bytes.Length()), agent.timeoutMs, outcome.failure))
    return false;
  if (!ReadReply(link, agent, packet, reply, outcome)) return false;
  if (!SendFile(link, context, content, outcome.failure)) return false;
  const timespec pause{pauseMs / 1000, pauseMs % 1000 * 1000000};
  (void)nanosleep(&pause, nullptr);
  const String digest = EncodeData(Digest(content), *packet.key, 0);
  return link.Send(digest.Data(), static_cast<size_t>(digest.Length()), agent.timeoutMs, outcome.failure) &&
         ReadReply(link, agent, packet, reply, outcome);
}

void AddChanges(const TAgentInfo& before, const TAgentInfo& after, TOutcome& outcome) {
  TTable table{
      "changes",
      {{"name", "changed", TUnit::kNone}, {"before", "before", TUnit::kNone}, {"after", "after", TUnit::kNone}},
      {}};
  for (const auto& line : after.lines) {
    if (line.first.find("Connections") != std::string::npos) continue;  // they start from zero each time
    const std::string old = before.Value(line.first);
    if (old != line.second) table.rows.push_back({line.first, old, line.second});
  }
  outcome.result.headline = after.Value("AgentName") + " " + after.Value("AgentVersion") + " answers after " +
                            MillisecondsText(after.elapsedMs) +
                            (table.rows.empty() ? "; it reports what it did before" : "");
  outcome.result.Add("version_before", "version before", before.Value("AgentVersion"));
  outcome.result.Add("version", "version now", after.Value("AgentVersion"));
  outcome.result.tables.push_back(table);
}

void RunUpgrade(TContext& context, const TArgs& args, TOutcome& outcome) {
  std::string content;
  TAgentInfo before, after;
  const std::string name = args.Text("FILE");
  if (!ReadInput(name, kLargestProgram + 1, content, outcome.failure)) return;
  if (!CheckProgram(content, name, outcome.failure)) {
    const auto size = static_cast<long long>(content.size());
    if (!args.Has("--force") || size < kSmallestProgram || size > kLargestProgram) return;
    Note(context.view, "tavctl: forced: " + outcome.failure.text);
    outcome.failure = TFailure();
  }
  if (!AskInfo(*context.agent, "GetInfo", before, outcome.failure)) return;
  bool sent = false;
  for (const long pauseMs : kPausesMs) {
    outcome = TOutcome();
    sent = Transfer(context, content, pauseMs, outcome);
    if (sent || outcome.failure.text != "Wrong CRC") break;
    Note(context.view, "tavctl: the agent took the digest apart; sending it all once more");
  }
  if (!sent) return;
  const TRestart restart{before.Number("OpenedConnections")};
  if (!WaitForAgent(*context.agent, args.Milliseconds("--wait", 60000), &restart, after, outcome.failure)) {
    outcome.failure.text = "the agent took the file, but the new one does not answer: " + outcome.failure.text;
    return;
  }
  outcome.result.Add("sent", "sent", static_cast<long long>(content.size()), TUnit::kBytes);
  AddChanges(before, after, outcome);
}

}  // namespace

std::vector<TCommandRow> UpgradeCommands() {
  return {
      Custom("upgrade", "Replace the agent's program and wait for the new agent",
             {{"FILE", TArgKind::kLocalFile, "the new program"},
              {"--wait", TArgKind::kSeconds, "wait so long for the new agent (60)"},
              {"--force", TArgKind::kFlag, "send it although it is not for a machine like this one"}},
             RunUpgrade)
          .Ask(TConfirm::kOnTerminal),
  };
}
