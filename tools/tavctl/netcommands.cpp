// The tests of processes, load and network services.
#include "client/text.h"
#include "protocol/parameters.h"
#include "tavctl/commands.h"

namespace {

constexpr long long kProbeMs = 5000;

void BuildProcess(const TArgs& args, TParams& params) {
  params.Text(params::process::kName, args.Text("NAME"));
}

void DecodeProcess(TReader& reply, TResult& result) {
  result.Add("count", "running", reply.Number("count"), TUnit::kCount);
}

void BuildCpu(const TArgs&, TParams&) {}

void DecodeCpu(TReader& reply, TResult& result) {
  result.Add("load", "load", reply.Real("load"), TUnit::kPercent);
}

// The agent gives the script 8 seconds and looks once a second.
long long CpuWorkMs(const TArgs&) {
  return 10000;
}

void BuildTcp(const TArgs& args, TParams& params) {
  namespace at = params::tcp;
  params.Text(at::kHost, args.Text("HOST"));
  params.Text(at::kPort, args.Text("PORT"));
  params.Number(at::kTimeoutMs, args.Milliseconds("--wait", kProbeMs));
  params.Encoded(at::kData, args.Text("--send"));
  params.Number(at::kReceiveSize, args.Number("--receive", 0));
}

void BuildUdp(const TArgs& args, TParams& params) {
  namespace at = params::udp;
  params.Text(at::kHost, args.Text("HOST"));
  params.Text(at::kPort, args.Text("PORT"));
  params.Number(at::kTimeoutMs, args.Milliseconds("--wait", kProbeMs));
  params.Number(at::kAttempts, args.Number("--attempts", 1));
  params.Encoded(at::kData, args.Text("--send"));
  params.Number(at::kReceiveSize, args.Number("--receive", 0));
  if (args.Text("--send").empty()) params.Refuse("a datagram needs something in it", "give it with --send");
  if (args.Number("--attempts", 1) == 0) params.Refuse("at least one attempt is needed", "");
}

void DecodeProbe(TReader& reply, TResult& result) {
  result.Add("time_ms", "time", reply.Number("time"), TUnit::kMilliseconds);
  const std::string received = reply.Decoded("received data");
  result.Add("received", "received", received);
}

// 0 stands for two minutes; connecting and reading may each take the whole of it.
long long TcpWorkMs(const TArgs& args) {
  const long long wait = args.Milliseconds("--wait", kProbeMs);
  return 2 * (wait == 0 ? 120000 : wait);
}

long long UdpWorkMs(const TArgs& args) {
  return (args.Milliseconds("--wait", kProbeMs) + 1000) * args.Number("--attempts", 1);
}

}  // namespace

std::vector<TCommandRow> NetCommands() {
  const TArgKind text = TArgKind::kText, number = TArgKind::kNumber, port = TArgKind::kPort;
  const TArgRow host = {"HOST", text, "name or address, as the agent's host knows it"};
  const TArgRow toPort = {"PORT", port, "its port"};
  return {
      Simple("test process", "Number of running processes of a name", "TEST-Process",
             {{"NAME", text, "what the agent's script is asked for; its shell sees it as it stands"}}, BuildProcess,
             DecodeProcess),
      Simple("test cpu", "Load of the processors", "TEST-CPU", {}, BuildCpu, DecodeCpu).Works(CpuWorkMs),
      Simple("test tcp", "Whether a TCP service answers", "TEST-TCP",
             {host,
              toPort,
              {"--send", text, "send this; %0D and %0A in it arrive as line breaks"},
              {"--receive", TArgKind::kSize, "wait for an answer and take so many bytes of it, at most 8192"},
              {"--wait", TArgKind::kSeconds, "how long (5; 0 is two minutes)"}},
             BuildTcp, DecodeProbe)
          .Works(TcpWorkMs),
      Simple("test udp", "Whether a UDP service answers", "TEST-UDP",
             {host,
              toPort,
              {"--send", text, "send this"},
              {"--receive", TArgKind::kSize, "wait for an answer and take so many bytes of it, at most 8192"},
              {"--wait", TArgKind::kSeconds, "how long for each attempt, in whole seconds (5)"},
              {"--attempts", number, "so many times at most (1)"}},
             BuildUdp, DecodeProbe)
          .Works(UdpWorkMs),
  };
}
