// upgrade: sends a new program file, waits for the new agent and says what changed.
#include <unistd.h>

#include <algorithm>

#include "client/agentinfo.h"
#include "client/inputfiles.h"
#include "client/text.h"
#include "core/clock.h"
#include "protocol/parameters.h"
#include "protocol/programsize.h"
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

bool ReadReply(TLink& link, const TAgent& agent, const TPacket& packet, TFailure& failure) {
  std::string answer;
  TReply reply;
  if (!link.ReadPacket(answer, agent.timeoutMs + 30000, agent.timeoutMs, failure)) return false;
  if (!ParseReply(OpenPacket(packet, answer), reply, failure)) return false;
  if (reply.Ok()) return true;
  failure = ExplainAnswer("UpgradeCode", reply.code, reply.lines);
  return false;
}

bool SendAll(TLink& link, const TAgent& agent, const String& bytes, TFailure& failure) {
  return link.Send(bytes.Data(), static_cast<size_t>(bytes.Length()), agent.timeoutMs, failure);
}

bool SendFile(TLink& link, const TContext& context, TFailure& failure) {
  const std::string& content = context.content;
  TProgress progress(context.view, content.size());
  for (size_t done = 0; done < content.size();) {
    const size_t block = std::min(kBlock, content.size() - done);
    if (!link.Send(content.data() + done, block, context.agent->timeoutMs, failure)) return false;
    done += block;
    progress.Show(done);
  }
  return link.Drain(context.agent->timeoutMs, failure);
}

bool Transfer(const TContext& context, long pauseMs, TFailure& failure) {
  const TAgent& agent = *context.agent;
  TParams params;
  params.Number(params::upgrade::kSize, static_cast<long long>(context.content.size()));
  TPacket packet;
  TLink link(agent.deadline);
  if (!MakePacket(*agent.password, params.RequestText("UpgradeCode"), packet, failure)) return false;
  if (!link.Connect(agent.target, agent.timeoutMs, failure)) return false;
  if (!SendAll(link, agent, packet.bytes, failure) || !ReadReply(link, agent, packet, failure)) return false;
  if (!SendFile(link, context, failure)) return false;
  SleepUs(pauseMs * 1000);
  // The digest of a password is made the same way as that of a file.
  const String digest = EncodeData(EncodePswd(ToString(context.content)), *packet.key, 0);
  return SendAll(link, agent, digest, failure) && ReadReply(link, agent, packet, failure);
}

bool TransferUntilTaken(const TContext& context, TFailure& failure) {
  for (const long pauseMs : kPausesMs) {
    failure = TFailure();
    if (Transfer(context, pauseMs, failure)) return true;
    if (failure.text != "Wrong CRC") return false;
    Note(context.view, "tavctl: the agent took the digest apart; sending it all once more");
  }
  return false;
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

// Reads the program once for all hosts and looks at it; with --force a fault is only noted.
bool PrepareUpgrade(const TView& view, const TArgs& args, std::string& content, TFailure& failure) {
  const std::string name = args.Text("FILE");
  if (!ReadInput(name, kLargestProgram + 1, content, failure) || !CheckProgramSize(content, name, failure))
    return false;
  if (CheckProgram(content, name, failure)) return true;
  if (!args.Has("--force")) return false;
  Note(view, "tavctl: forced: " + failure.text);
  failure = TFailure();
  return true;
}

void RunUpgrade(TContext& context, const TArgs& args, TOutcome& outcome) {
  TAgentInfo before, after;
  if (!AskInfo(*context.agent, "GetInfo", before, outcome.failure)) return;
  const bool fits = CheckMachine(context.content, before.Value("RunningOS"), outcome.failure);
  if (!fits && !args.Has("--force")) return;
  if (!TransferUntilTaken(context, outcome.failure)) return;
  const TRestart restart{before.Number("OpenedConnections")};
  const long long waitMs = args.Milliseconds("--wait", 60000);
  if (!WaitForAgent(*context.agent, waitMs, &restart, after, outcome.failure)) {
    outcome.failure.text = "the agent took the file, but the new one does not answer: " + outcome.failure.text;
    return;
  }
  outcome.result.Add("sent", "sent", static_cast<long long>(context.content.size()), TUnit::kBytes);
  AddChanges(before, after, outcome);
}

}  // namespace

std::vector<TCommandRow> UpgradeCommands() {
  return {
      Custom("upgrade", "Replace the agent's program and wait for the new agent",
             {{"FILE", TArgKind::kInputFile, "the new program"},
              {"--wait", TArgKind::kSeconds, "wait so long for the new agent (60)"},
              {"--force", TArgKind::kFlag, "send it although it looks like no program for that host"}},
             RunUpgrade)
          .Changes(Always)
          .Prepare(PrepareUpgrade)
          .Fragile(),
  };
}
