// act: what the agent does for us.
#include "client/text.h"
#include "protocol/parameters.h"
#include "tavctl/commands.h"

namespace {

constexpr long long kWaitMs = 30000;
// A program that needs a second word; nothing reads the value, but it must be a number.
constexpr int kUnusedNumber = 0;

void BuildActRun(const TArgs& args, TParams& params) {
  namespace at = params::external_cmd;
  std::string command;
  TFailure failure;
  if (!JoinCommand(args.List("CMD"), command, failure)) return params.Refuse(failure.text, failure.hint);
  params.Text(at::kCommandLine, command);
  params.Text(at::kFolder, args.Text("--dir"));
  params.Number(at::kUnused, kUnusedNumber);
  params.Number(at::kTimeoutMs, args.Has("--no-wait") ? -1 : args.Milliseconds("--wait", kWaitMs));
}

void DecodeExit(TReader& reply, TResult& result) {
  result.Add("exit_status", "exit status", reply.Number("exit status"));
}

long long ActRunWorkMs(const TArgs& args) {
  const long long wait = args.Milliseconds("--wait", kWaitMs);
  return wait == 0 ? 86400000 : wait + 5000;
}

void BuildSend(const TArgs& args, TParams& params) {
  namespace at = params::send;
  params.Text(at::kHost, args.Text("HOST"));
  params.Text(at::kPort, args.Text("PORT"));
  params.Text(at::kKind, args.Has("--udp") ? "1" : "0");
  params.Encoded(at::kFirst, args.Text("DATA"));
  params.Number(at::kDelayS, args.Milliseconds("--delay", 0) / 1000);
  params.Encoded(at::kSecond, args.Text("--then"));
}

// A connection that nobody refuses takes the system's own time, about two minutes.
long long SendWorkMs(const TArgs& args) {
  return args.Milliseconds("--delay", 0) + 130000;
}

void DecodeText(TReader& reply, TResult& result) {
  result.Add("text", "agent says", reply.Text("text"));
}

// In the order of their numbers (RFC 5424, tables 1 and 2).
constexpr const char* kFacilities[] = {"kern",   "user",   "mail",   "daemon", "auth",     "syslog",
                                       "lpr",    "news",   "uucp",   "cron",   "authpriv", "ftp",
                                       "ntp",    "audit",  "alert",  "clock",  "local0",   "local1",
                                       "local2", "local3", "local4", "local5", "local6",   "local7"};
constexpr const char* kSeverities[] = {"emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"};

// By name or number; -1 for neither.
template <size_t N>
int IndexOf(const std::string& word, const char* const (&names)[N]) {
  for (size_t i = 0; i < N; ++i)
    if (word == names[i] || word == std::to_string(i)) return static_cast<int>(i);
  return -1;
}

void BuildSyslog(const TArgs& args, TParams& params) {
  namespace at = params::syslog;
  const int facility = IndexOf(Lower(args.Text("--facility", "user")), kFacilities);
  const int severity = IndexOf(Lower(args.Text("--severity", "info")), kSeverities);
  if (facility < 0)
    params.Refuse("unknown facility", "kern, user, mail, daemon, ..., local0 to local7, or 0 to 23");
  if (severity < 0)
    params.Refuse("unknown severity", "emerg, alert, crit, err, warning, notice, info, debug, or 0 to 7");
  params.Text(at::kServer, args.Text("SERVER"));
  params.Text(at::kPort, args.Text("--to-port", "514"));
  params.Number(at::kFacility, facility);
  params.Number(at::kSeverity, severity);
  params.Encoded(at::kMessage, args.Text("MESSAGE"));
}

}  // namespace

namespace {

// For completion; lives as long as the program.
template <size_t N>
const char* Words(const char* const (&names)[N]) {
  static const std::string words = [&names] {
    std::string all;
    for (const char* name : names) all += (all.empty() ? "" : " ") + std::string(name);
    return all;
  }();
  return words.c_str();
}

}  // namespace

std::vector<TCommandRow> ActionCommands() {
  const TArgKind text = TArgKind::kText, flag = TArgKind::kFlag, seconds = TArgKind::kSeconds;
  return {
      Simple("act run", "Run a program as an action", "ACT-ExternalCmd",
             {{"--dir", text, "in this folder of the host"},
              {"--wait", seconds, "kill it after so long, in whole seconds (30; 0 never)"},
              {"--no-wait", flag, "let it run on"},
              {"CMD...", text, "the program and its arguments, behind --; no shell reads them"}},
             BuildActRun, DecodeExit)
          .Works(ActRunWorkMs)
          .Changes(Always),
      Simple("act send", "Send data to a TCP or UDP port", "ACT-TCPUDPsend",
             {{"HOST", text, "name or address, as the agent's host knows it"},
              {"PORT", TArgKind::kPort, "its port"},
              {"DATA", text, "what to send; %0D and %0A in it arrive as line breaks"},
              {"--udp", flag, "as a datagram"},
              {"--then", text, "send this behind it"},
              {"--delay", seconds, "so long after the first, in whole seconds"}},
             BuildSend, DecodeText)
          .Works(SendWorkMs)
          .Changes(Always),
      Simple("act syslog", "Send a message to a syslog server", "ACT-Syslog",
             {{"SERVER", text, "name or address, as the agent's host knows it"},
              {"MESSAGE", text, "the message"},
              {"--to-port", TArgKind::kPort, "the server's port (514)"},
              {"--facility", text, "name or number (user)", Words(kFacilities)},
              {"--severity", text, "name or number (info)", Words(kSeverities)}},
             BuildSyslog, DecodeText)
          .Changes(Always),
  };
}
