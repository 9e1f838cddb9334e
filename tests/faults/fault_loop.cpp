// Lets every call that can fail, fail: for each command the 1st, the 2nd, ... n-th call of a kind that the agent
// makes on its behalf fails once, until none is left; the same while the agent starts and while its port moves.
// Each time the answer is right or no "200", the agent lives on and answers the next right, and nothing stays
// behind.
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <mutex>
#include <regex>
#include <set>

#include "fault_control.h"
#include "faults.h"

namespace {

constexpr int kMostCalls = 2000;
constexpr size_t kMostThreads = 5;  // the main one, some that are idle
constexpr double kRestSeconds = 4;  // children left to themselves are looked after once a second
const char* const kNames[kFaultKinds] = {"none", "memory", "descriptors", "processes",
                                         "disk", "status", "interrupted"};

bool Matches(const std::string& got, std::string want) {
  std::replace(want.begin(), want.end(), '|', '\n');
  return want[0] == '~' ? std::regex_match(got, std::regex(want.substr(1))) : got == want;
}

// What is wrong with a reply; empty: nothing.
std::string Judge(int kind, const std::string& got, const std::string& want) {
  if (Matches(got, want)) return "";
  if (got == "closed" && (kind == kMemory || kind == kProcesses)) return "";
  static const std::regex error("(30[01]|501|600)(\n[^]*)?");
  const bool told = std::regex_match(got, error) && got.find("(and the") == std::string::npos;
  return told && kind != kNoFault && kind != kInterrupted ? "" : "answered \"" + got.substr(0, 120) + "\"";
}

// An agent of which single calls are made to fail.
class TWatched : public Agent {
 public:
  explicit TWatched(const std::string& extra, const std::vector<std::string>& with = {"-i"}) : switches(with) {
    Write("control", std::string(sizeof *control, '\0'));
    Write("args", "");
    const int fd = open(At("@/control").c_str(), O_RDWR | O_CLOEXEC);
    control =
        static_cast<TFaultControl*>(mmap(nullptr, sizeof *control, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    close(fd);
    Write("agent", "#!/bin/sh\nTAV_FAULTS=" + At("@/control") + " LD_PRELOAD=" TAV_FAULT_SHIM " exec " +
                       AgentBinary() + " \"$@\"\n");
    program = At("@/agent");
    Write("t/a.txt", "012345678\n", 90);
    Write("t/s/b.txt", "01234", 90);
    Write("t/s/.h", "012");
    Write("t/s/u/c.txt", "0");
    std::string deep = "deep";  // deeper than a walk keeps folders open
    for (int level = 0; level < 34; ++level) deep += "/d";
    Write(deep + "/f", "");
    Write("crc", std::string(2049, 'x'));
    Write("x", "abc");
    Write("y", "abcdef");
    Write("lines.txt", "alpha beta 12345\nthe end\n");
    Write("n.sh", "#!/bin/sh\necho $#\n");
    Write("cpu.sh", "#!/bin/sh\necho 12.5 %\n");
    Write("list.sh", "#!/bin/sh\nprintf 'a\\nb\\n'\n");
    for (const char* log : {"log1.txt", "log2.txt", "verbose.log", "tav.cfg.Old"}) Write(log, "");
    config = Defaults() + At("proccntscript=@/n.sh\ncpuusagescript=@/cpu.sh\nproclistscript=@/list.sh\ncomment=0\n"
                             "executeaction=1\ntcpudpaction=1\nsyslogaction=1\nverboselogfile=verbose.log\n" +
                             extra);
  }
  ~TWatched() { munmap(control, sizeof *control); }

  // Does not wait until it listens.
  void Begin() {
    if (pid > 0) kill(pid, SIGKILL), ExitStatus(pid);
    for (const char* file : {"console", "verbose.log", "tav.pid"}) fs::remove(At("@/") + file);
    Write("log2.txt", "");
    fs::remove_all(At("@/tmp"));
    fs::create_directory(At("@/tmp"));
    port = ports[0];
    Write("old", "the program before");
    Write("tav.cfg", config);
    std::vector<std::string> arguments = switches;
    arguments.push_back(At("@/tav.cfg"));
    control->child = 0;
    Spawn(arguments);
  }
  void Launch() {
    Disarm();
    Begin();
    if (!IsInteractive()) Daemonize();
    EXPECT_TRUE(WaitFor([this] { return Listens(); })) << Console();
  }
  bool IsInteractive() const { return switches[0] == "-i"; }
  // The process that was started ends with 0 and leaves another one.
  bool Daemonize() {
    status = ExitStatus(pid);
    if (status == 0) pid = control->child;
    return pid > 0;
  }
  bool Listens() const {
    return Read(IsInteractive() ? "console" : "verbose.log").find("Listening...\n") != std::string::npos;
  }
  // What is there when nothing is under way.
  void Settle() {
    (void)WaitFor([this] { return Working().empty(); });
    descriptors = RestingDescriptors(*this);
    known = Names();
  }

  void Arm(int kind, int n, bool startUp) {
    *control->call = '\0';
    std::fill_n(control->where, kFaultCallers, 0);
    control->startUp = startUp;
    control->left = n;
    __atomic_store_n(&control->kind, kind, __ATOMIC_SEQ_CST);
  }
  bool Disarm() {
    __atomic_store_n(&control->kind, kNoFault, __ATOMIC_SEQ_CST);
    return *control->call != '\0';
  }
  int Images() const { return __atomic_load_n(&control->images, __ATOMIC_SEQ_CST); }
  std::string Place() const {
    std::ostringstream out;
    out << control->call << std::hex;
    for (const unsigned long at : control->where) at != 0 ? out << ' ' << at : out;
    return out.str();
  }

  // A save whose last rename fails is to leave the new file beside the old one.
  void TakeLeft(const std::string& reply) const {
    if (reply.rfind("300\nCannot overwrite", 0) == 0) fs::remove(At("@/tav.cfg.New"));
  }

  // True when the agent's process has ended; then with which status.
  bool Ended() {
    int state = 0;
    if (pid == 0) return true;
    if (waitpid(pid, &state, WNOHANG) != pid) return false;
    pid = 0;
    status = WIFSIGNALED(state) ? 256 + WTERMSIG(state) : WEXITSTATUS(state);
    return true;
  }
  bool Serves() const { return FirstLine(Ask("GetInfo")) == "200"; }

  // What still runs or is left; empty: nothing.
  std::string Unrest() {
    if (Ended()) return "the agent has ended with " + std::to_string(status);
    if (Descriptors(pid) > descriptors) return "a descriptor stays:" + OpenFiles();
    if (!fs::is_empty(folder + "/tmp")) return "a temporary file stays";
    for (const std::string& name : Names())
      if (known.count(name) == 0) return name + " stays";
    return Working();
  }
  std::string AtRest() {
    std::string what;
    (void)WaitFor([&] { return (what = Unrest()).empty() || pid == 0; }, kRestSeconds);
    return what;
  }

  int status = 0;
  const int ports[2] = {port, FreePort()};
  TFaultControl* control = nullptr;

 private:
  std::set<std::string> Names() const {
    std::set<std::string> all;
    for (const auto& entry : fs::directory_iterator(folder)) all.insert(entry.path().filename());
    return all;
  }
  std::string OpenFiles() const {
    std::string all;
    std::error_code gone;
    for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd"))
      all += " " + fs::read_symlink(entry, gone).string();
    return all;
  }
  std::string Working() const {
    const std::string tasks = "../../proc/" + std::to_string(pid) + "/task/";
    size_t threads = 0;
    for (const auto& task : fs::directory_iterator(At("@/" + tasks))) {
      const std::string name = tasks + task.path().filename().string(), stat = Read(name + "/stat");
      if (!Read(name + "/children").empty()) return "a child stays";
      if (stat.compare(stat.rfind(')') + 2, 1, "S") != 0) return "a thread goes on";
      ++threads;
    }
    return threads <= kMostThreads ? "" : std::to_string(threads) + " threads stay";
  }

  const std::vector<std::string> switches;
  std::string config;
  long descriptors = 0;
  std::set<std::string> known;
};

// Carried out once for each call that fails, and in between with none; returns what is wrong with the outcome.
using TAct = std::function<std::string(TWatched& agent, int kind)>;

struct TCase {
  std::string name;
  TAct act;
  std::string extra = "";  // lines of the configuration
  bool startUp = false;
  std::vector<std::string> switches = {"-i"};
};

struct TFindings {
  std::mutex mutex;
  int tried[kFaultKinds] = {}, broken[kFaultKinds] = {};
  std::ostringstream list;
};

void Loop(const TCase& row, TFindings& findings) {
  TWatched agent(row.extra, row.switches);
  agent.Launch();
  agent.Settle();
  std::string what = row.act(agent, kNoFault);
  if (agent.pid == 0) agent.Launch();
  agent.Settle();  // once more: the first of its kind may leave what stays
  int tried = 0;
  for (int kind = kMemory; kind < kFaultKinds; ++kind) {
    bool fired = true;
    for (int n = 1; fired && n < kMostCalls; ++n) {
      if (agent.pid == 0) agent.Launch();
      agent.Arm(kind, n, row.startUp);
      if (what.empty()) what = row.act(agent, kind);
      fired = agent.Disarm();
      if (agent.pid == 0) agent.Launch();
      if (what.empty() && !(what = row.act(agent, kNoFault)).empty()) what = "then: " + what;
      if (what.empty() && !WaitFor([&] { return agent.pid == 0 || IsAlone(agent); }))
        what = "a session counts for ever";
      const std::lock_guard<std::mutex> lock(findings.mutex);
      findings.tried[kind] += fired;
      tried += fired;
      if (what.empty()) continue;
      ++findings.broken[kind];
      std::replace(what.begin(), what.end(), '\n', '|');
      findings.list << row.name << ", " << kNames[kind] << " " << n << ": " << what << " [" << agent.Place()
                    << "]\n";
      agent.Launch();
      agent.Settle();
      what.clear();
    }
  }
  const std::lock_guard<std::mutex> lock(findings.mutex);
  if (tried == 0) findings.list << row.name << ": no call could be made to fail\n";
}

TAct Plain(const std::string& request, const std::string& want) {
  return [=](TWatched& agent, int kind) {
    const std::string what = Judge(kind, agent.Ask(request), agent.At(want));
    return what.empty() ? agent.AtRest() : what;
  };
}

// Right is what the first answer was, but for the numbers of connections.
TAct Same(const std::string& request) {
  return [=, first = std::make_shared<std::string>()](TWatched& agent, int kind) {
    const std::string got = std::regex_replace(agent.Ask(request), std::regex("((Opened|Active)\\w+)=\\d+"), "$1");
    if (first->empty()) *first = got;
    if (got != *first && !Judge(kind, got, "").empty()) return "answered " + got;
    return agent.AtRest();
  };
}

// The file is the old one or the new one, and the new one after a "200".
std::string Save(TWatched& agent, int kind) {
  const std::regex comment("comment=(\\d+)");
  const std::string before = agent.Read("tav.cfg");
  std::smatch found;
  if (!std::regex_search(before, found, comment)) return "the file has lost its comment";
  const std::string next = std::to_string(stol(found[1]) + 1);
  const std::string got = agent.Ask("SetSettings|Comment=" + next), after = agent.Read("tav.cfg");
  const std::string what = Judge(kind, got, "200");
  if (!what.empty()) return what;
  agent.TakeLeft(got);
  // The first save adds what the file does not name; later ones change the number alone.
  const bool isNew = after.find("shellscript=1") != std::string::npos &&
                     (before.find("shellscript=1") == std::string::npos ||
                      after == std::regex_replace(before, comment, "comment=" + next));
  if (!isNew && after != before) return "the file is neither the old nor the new one: " + after;
  return got == "200" && !isNew ? "nothing was saved" : agent.AtRest();
}

std::string MovePort(TWatched& agent, int kind) {
  static const std::regex line("\nPort=(\\d+)\n");
  const int before = agent.port, target = agent.ports[before == agent.ports[0]];
  const std::string got = agent.Ask("SetSettings|Port=" + std::to_string(target)), what = Judge(kind, got, "200");
  if (!what.empty()) return what;
  agent.TakeLeft(got);
  const bool arrived = WaitFor([&] {
    for (const int port : {target, before}) {
      agent.port = port;
      if (agent.Ended()) return true;
      if (Connect(port).Descriptor() >= 0 && Tells(agent, "Port=" + std::to_string(port))) return true;
    }
    return false;
  });
  if (!arrived) return "serves on neither port";
  const bool must = kind == kNoFault || kind == kInterrupted;
  return must && agent.port != target ? "stays on the old port" : agent.AtRest();
}

std::string Reload(TWatched& agent, int kind) {
  const int images = agent.Images();
  const std::string got = agent.Ask("ReloadApp"), what = Judge(kind, got, "200|Ok");
  if (!what.empty()) return what;
  if (got == "200\nOk" && !WaitFor([&] { return agent.Images() > images && agent.Serves(); }, 5))
    return agent.Serves() ? "was not replaced" : "serves no more";
  return agent.AtRest();
}

// Waits until the agent has ended as it should, or rests.
std::string AfterEnd(TWatched& agent, bool must) {
  if (!WaitFor([&] { return agent.Ended() || (!must && agent.Unrest().empty()); }, 5)) return "does not end";
  const std::string unrest = agent.pid != 0 ? agent.AtRest() : "";
  if (agent.pid != 0) return unrest;  // it may have ended only now: its last child's files go first
  if (agent.status != 0) return "ended with " + std::to_string(agent.status);
  return agent.TempFolderIsEmpty() ? "" : "a temporary file stays";
}

std::string Quit(TWatched& agent, int kind) {
  const std::string got = agent.Ask("QUIT"), what = Judge(kind, got, "200|Ok");
  return what.empty() ? AfterEnd(agent, got == "200\nOk") : what;
}

std::string Upgrade(TWatched& agent, int kind) {
  const std::string file = "#!/bin/sh\necho $* >args\n#" + std::string(2000, '#');
  agent.Write("args", "");
  std::string got, what;
  {
    const Socket socket = Open(agent, "UpgradeCode\r\n" + std::to_string(file.size()) + "\r\n", got);
    what = Judge(kind, got, "200");
    if (!what.empty() || got != "200") return what.empty() ? agent.AtRest() : what;
    socket.Send(file + Cipher(Direction::kSeal, Md5(file), "session"));
    got = ReadReply(socket, "session");
    what = Judge(kind, got, "200");
  }
  if (!what.empty()) return what;
  what = AfterEnd(agent, kind == kNoFault || kind == kInterrupted);
  if (!what.empty() || got != "200") return what;
  // The reply is sent before the hand-over, whose failure the log tells.
  const bool stays =
      agent.pid != 0 && agent.Read("log2.txt").find("cannot start upgrading script") != std::string::npos;
  const bool whole = agent.Read("old") == file && agent.Read("args") == agent.At("-i @/tav.cfg\n");
  return whole || stays ? "" : "the new program does not run";
}

// The agent serves, or ends soon with a status and says why.
std::string StartUp(TWatched& agent, int kind) {
  agent.Begin();
  const bool begun = agent.IsInteractive() || agent.Daemonize();
  if (begun) (void)WaitFor([&] { return agent.Ended() || agent.Listens(); }, 5);
  agent.Disarm();
  if (agent.pid != 0 && agent.Serves()) return agent.AtRest();
  (void)WaitFor([&] { return agent.Ended(); }, 5);
  const std::string told = agent.Console() + agent.Read("log2.txt");
  const std::string ending = "ends with " + std::to_string(agent.status) + ": " + told.substr(told.find("Command"));
  if (agent.pid != 0) return "does not serve";
  const bool may = kind != kNoFault && kind != kInterrupted && agent.status >= 1 && agent.status <= 4;
  return may && std::regex_search(told, std::regex("rror|annot")) ? "" : ending;
}

// ---- peers of the tests ----

// Answers each connection or datagram until it goes.
class TPeer {
 public:
  explicit TPeer(bool isTcp) : tcp(isTcp), socket(isTcp ? ServeTcp() : ServeUdp()), thread([this] { Run(); }) {}
  ~TPeer() { over = true, thread.join(); }
  std::string Port() const { return std::to_string(socket.Port()); }

 private:
  void Run() const {
    char data[512];
    sockaddr_in from{};
    socklen_t length = sizeof from;
    for (pollfd wait{socket.Descriptor(), POLLIN, 0}; !over;) {
      if (poll(&wait, 1, 50) != 1) continue;
      if (tcp) {
        const Socket client = Accept(socket);
        client.Send("PONG");
        client.Receive(5);
      } else if (recvfrom(socket.Descriptor(), data, sizeof data, 0, reinterpret_cast<sockaddr*>(&from), &length) >
                 0) {
        sendto(socket.Descriptor(), "PONG", 4, 0, reinterpret_cast<sockaddr*>(&from), length);
      }
    }
  }

  const bool tcp;
  std::atomic<bool> over{false};
  const Socket socket;
  std::thread thread;
};

// "T" stands for the port of a peer by TCP, "U" for one by UDP.
const char kRequests[] = R"(
  TEST-UNC|@/t => ~200| *\d+| *\d+| *\d+|\d+
  TEST-DiskSpace => 500|Not applicable for UNIX/Linux
  TEST-FolderSize|@/t|1 => 200|    19
  TEST-FolderSize|@/t/%newestfolder%/*.txt|1||||||1 => 200|     6
  TEST-FileExists|@/t/a* => ~200|    10|\d{14}|\d{14}|@/t/a.txt|min|\d+
  TEST-FileExists|@/t/%newestfolder%/%oldestfile%||||||1 => ~200|     5|\d{14}|\d{14}|@/t/s/b.txt|min|\d+
  TEST-FileCompare|1|@/x|@/y|0|0|1 => 200|1
  TEST-FileCompare|2|@/y|@/x => 200|1
  TEST-FileCompare|3|@/y|cde|1|0 => 200|1
  TEST-FileCRC|@/crc => 200|2023187561
  TEST-CountFiles|@/t|*|1|0|0 => 200|4
  TEST-CountFiles|@/t|*|1|5|0 => 200|2
  TEST-CountFiles|@/t|*|0|1|60 => 200|1
  TEST-CountFiles|@/t|*|1|3|2 => 200|3
  TEST-CountFiles|@/deep|*|1|0|0 => 200|1
  TEST-Process||one two => 200|2
  TEST-Service => 500|Not applicable for UNIX/Linux
  TEST-NTLog => 500|Not applicable for UNIX/Linux
  TEST-CPU => 200|12.5000
  TEST-PerfCounter => 500|Not applicable for UNIX/Linux
  TEST-Script => 500|not implemented yet
  TEST-SNMP => 500|not implemented yet
  TEST-ExternalPrg|sh -c 'exit 3'|||0 => 200|3
  TEST-ExternalPrg|/no/such|||-1 => 301|exec error
  TEST-Ping => 500|not implemented yet
  TEST-TCP|127.0.0.1|T|5000|PING|4 => ~200|\d+|PONG
  TEST-TCP|localhost|T|5000||4 => ~200|\d+|PONG
  TEST-UDP|127.0.0.1|U|5000|1|x|4 => ~200|\d+|PONG
  TEST-TextLog2|@/lines.txt|0|1|1|1|'alpha' or 'x'|1|1|0|1|'beta'|1|1|0 => ~200|     1|alpha beta 12345|0|    25|[-\d| ]*@/lines.txt
  TEST-TextLog2|@/t/*.txt|0|1|1|1|34|0|0|0| => ~200|     4|012345678|0|    10|[-\d| ]*@/t/a.txt
  TEST-ShellScript|sh %script% %params% |echo a%0D%0Aecho scriptres:5 $1%0D%0Aecho b|p|5|1 => 200|scriptres:5 p|a%0D%0A
  ACT-ExternalCmd|test -f a.txt|@/t|0|0 => 200|0
  ACT-TCPUDPsend|127.0.0.1|T|0|x|0| => 200|Data has been sent
  ACT-TCPUDPsend|127.0.0.1|U|1|x|0|y => 200|Data has been sent
  ACT-Syslog|127.0.0.1|U|1|5|disk full => 200|Syslog: Data to 127.0.0.1 has been sent
  GetProcessesList => 200|a%0D%0Ab%0D%0Ab%0D%0A
  GetServicesList => 500|Not applicable for UNIX/Linux
  GetEventLogFiles => 500|Not applicable for UNIX/Linux
  GetEventLogSources => 500|Not applicable for UNIX/Linux
  GetDriveList => 500|not implemented yet
  GetFilesList|@/t/*||1|1|1|1|1|0|0 => ?
  GetFilesList|@/t/s/*.txt|*.h|0|1|1|1|0|0|0 => ?
  ReloadCfg => 200|Ok
  NoSuchCommand => 500)";

TEST(FaultLoop, WhateverFailsTheAnswerIsRightOrAnErrorAndNothingStays) {
  if (Sanitized()) GTEST_SKIP() << "a sanitizer brings an allocator and calls of its own";
  const TPeer tcp(true), udp(false);
  std::vector<TCase> cases = {
      {"start-up", StartUp, "", true, {"-i"}},
      {"start-up of a daemon", StartUp, "", true, {"-d", "-v"}},
      {"UpgradeCode", Upgrade, "tavpath=@/old\n"},
      {"SetSettings", Save},
      {"port move", MovePort},
      {"ReloadApp", Reload, "tavpath=@/agent\n"},
      {"QUIT", Quit},
      {"GetInfo", Same("GetInfo")},
      {"GetInfo, logged", Same("GetInfo"), "logsuccess=1\n", false, {"-d", "-v"}},
      {"GetSettings", Same("GetSettings")},
  };
  for (Exchange row : Rows(kRequests)) {
    row.request = std::regex_replace(row.request, std::regex("\\|T\\|"), "|" + tcp.Port() + "|");
    row.request = std::regex_replace(row.request, std::regex("\\|U\\|"), "|" + udp.Port() + "|");
    cases.push_back({row.request, row.reply == "?" ? Same(row.request) : Plain(row.request, row.reply)});
  }
  const char* const only = getenv("TAV_FAULT_LOOP");  // a part of the names
  TFindings findings;
  std::atomic<size_t> next{0};
  std::vector<std::future<void>> workers;
  for (unsigned i = 0; i < 3 * std::thread::hardware_concurrency(); ++i) {
    workers.push_back(std::async(std::launch::async, [&] {
      for (size_t n; (n = next++) < cases.size();)
        if (only == nullptr || cases[n].name.find(only) != std::string::npos) Loop(cases[n], findings);
    }));
  }
  for (auto& worker : workers) worker.get();
  std::ostringstream summary;
  for (int kind = kMemory; kind < kFaultKinds; ++kind)
    summary << kNames[kind] << ": " << findings.tried[kind] << " faults, " << findings.broken[kind]
            << " broke a rule\n";
  std::cout << summary.str() << findings.list.str();
  EXPECT_TRUE(findings.list.str().empty()) << "see the list above";
}

}  // namespace
