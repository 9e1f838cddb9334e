// Lets every call that can fail, fail: for each command the 1st, the 2nd, ... n-th call of a kind that the agent
// makes on its behalf fails once, until none is left; the same while the agent starts and while its port moves.
// Each time the answer is right or no "200", the agent lives on and answers the next right, and nothing stays
// behind.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>

#include <mutex>
#include <regex>
#include <set>

#include "commands.h"
#include "fault_control.h"
#include "faults.h"

namespace {

constexpr int kMostCalls = 2000;
constexpr size_t kMostThreads = 5;  // the main one, some that are idle
constexpr double kRestSeconds = 4;  // children left to themselves are looked after once a second
const char* const kNames[kFaultKinds] = {"none", "memory", "descriptors", "processes",
                                         "disk", "status", "interrupted"};

bool MustSucceed(int kind) {
  return kind == kNoFault || kind == kInterrupted;
}

// What is wrong with a reply; empty: nothing.
std::string Judge(int kind, const std::string& got, const std::string& want) {
  if (Matches(got, want)) return "";
  if (got == "closed" && (kind == kMemory || kind == kProcesses)) return "";
  static const std::regex error("(30[01]|501|600)(\n[^]*)?");
  const bool told = std::regex_match(got, error) && got.find("(and the") == std::string::npos;
  return told && !MustSucceed(kind) ? "" : "answered \"" + got.substr(0, 120) + "\"";
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
    StartsBy("TAV_FAULTS=" + At("@/control") + " LD_PRELOAD=" TAV_FAULT_SHIM " exec %");
    for (const char* log : {"log1.txt", "log2.txt", "verbose.log", "tav.cfg.Old"}) Write(log, "");
    config = Defaults() + LayOut(*this) + "comment=0\nverboselogfile=verbose.log\n" + At(extra);
  }
  ~TWatched() { munmap(control, sizeof *control); }

  // Does not wait until it listens.
  void Begin() {
    if (pid > 0) kill(pid, SIGKILL), ExitStatus();
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
    if (ExitStatus() == 0) pid = control->child;
    return pid > 0;
  }
  bool Listens() const { return Has(IsInteractive() ? "console" : "verbose.log", "Listening...\n"); }
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

  // What still runs or is left; empty: nothing.
  std::string Unrest() {
    if (HasEnded()) return "the agent has ended with " + std::to_string(status);
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
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task/";
    size_t threads = 0;
    for (const auto& task : fs::directory_iterator(tasks)) {
      const std::string name = tasks + task.path().filename().string(), stat = ReadAll(name + "/stat");
      if (!ReadAll(name + "/children").empty()) return "a child stays";
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
      if (what.empty() && !WaitFor([&] { return agent.pid == 0 || agent.Tells("ActiveConnections=1"); }))
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
  const int before = agent.port, target = agent.ports[before == agent.ports[0]];
  const std::string got = agent.Ask("SetSettings|Port=" + std::to_string(target)), what = Judge(kind, got, "200");
  if (!what.empty()) return what;
  agent.TakeLeft(got);
  const bool arrived = WaitFor([&] {
    for (const int port : {target, before}) {
      agent.port = port;
      if (agent.HasEnded()) return true;
      if (Connect(port).Descriptor() >= 0 && agent.Tells("Port=" + std::to_string(port))) return true;
    }
    return false;
  });
  if (!arrived) return "serves on neither port";
  return MustSucceed(kind) && agent.port != target ? "stays on the old port" : agent.AtRest();
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
  if (!WaitFor([&] { return agent.HasEnded() || (!must && agent.Unrest().empty()); }, 5)) return "does not end";
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
  const std::string got = agent.Upgrade(file);
  std::string what = Judge(kind, got, "200");
  if (what.empty()) what = AfterEnd(agent, MustSucceed(kind));
  if (!what.empty() || got != "200") return what;
  // The reply is sent before the hand-over, whose failure the log tells.
  const bool stays = agent.pid != 0 && agent.Has("log2.txt", "cannot start upgrading script");
  const bool whole = agent.Read("old") == file && agent.Read("args") == agent.At("-i @/tav.cfg\n");
  return whole || stays ? "" : "the new program does not run";
}

// The agent serves, or ends soon with a status and says why.
std::string StartUp(TWatched& agent, int kind) {
  agent.Begin();
  const bool begun = agent.IsInteractive() || agent.Daemonize();
  if (begun) (void)WaitFor([&] { return agent.HasEnded() || agent.Listens(); }, 5);
  agent.Disarm();
  if (agent.pid != 0 && agent.Serves()) return agent.AtRest();
  (void)WaitFor([&] { return agent.HasEnded(); }, 5);
  const std::string told = agent.Console() + agent.Read("log2.txt");
  const std::string ending = "ends with " + std::to_string(agent.status) + ": " + told.substr(told.find("Command"));
  if (agent.pid != 0) return "does not serve";
  const bool may = !MustSucceed(kind) && agent.status >= 1 && agent.status <= 4;
  return may && std::regex_search(told, std::regex("rror|annot")) ? "" : ending;
}

TEST(FaultLoop, WhateverFailsTheAnswerIsRightOrAnErrorAndNothingStays) {
  if (Sanitized()) GTEST_SKIP() << "a sanitizer brings an allocator and calls of its own";
  const Counterpart tcp(true), udp(false);
  std::vector<TCase> cases = {
      {"start-up", StartUp, "", true, {"-i"}},
      {"start-up of a daemon", StartUp, "", true, {"-d", "-v"}},
      {"UpgradeCode", Upgrade, "tavpath=@/old\n"},
      {"SetSettings", Save},
      {"port move", MovePort},
      {"ReloadApp", Reload, "tavpath=@/start\n"},
      {"QUIT", Quit},
      {"GetInfo", Same("GetInfo")},
      {"GetInfo, logged", Same("GetInfo"), "logsuccess=1\n", false, {"-d", "-v"}},
      {"GetSettings", Same("GetSettings")},
      {"ReloadCfg", Plain("ReloadCfg", "200|Ok")},
  };
  for (const Question& question : EveryCommand(tcp, udp))
    cases.push_back({question.request, Plain(question.request, question.reply)});
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
