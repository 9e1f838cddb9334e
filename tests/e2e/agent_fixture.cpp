#include "agent_fixture.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <regex>
#include <sstream>

namespace fs = std::filesystem;

std::string ReadAll(const std::string& path) {
  std::ostringstream out;
  out << std::ifstream(path, std::ios::binary).rdbuf();
  return out.str();
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

int FreePort() {
  // Below what the system gives to outgoing connections.  No other test program gets the same one: a socket with
  // its name is held until this program ends.
  static std::mutex mutex;
  static std::vector<Socket> names;
  static int next = getpid() % 11 * 1777;
  const std::lock_guard<std::mutex> lock(mutex);
  while (true) {
    const int port = 10000 + next++ % 20000;
    names.emplace_back(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un name{AF_UNIX, {}};
    snprintf(name.sun_path + 1, sizeof name.sun_path - 1, "tav-test-port-%d", port);
    if (bind(names.back().Descriptor(), reinterpret_cast<sockaddr*>(&name), sizeof name) != 0)
      names.pop_back();
    else if (ServeTcp(port).Descriptor() >= 0)
      return port;
  }
}

std::vector<pid_t> Children(pid_t parent) {
  std::vector<pid_t> out;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
    const std::string stat = ReadAll(entry.path().string() + "/stat");
    const size_t behindName = stat.rfind(") ");
    int owner = 0;
    if (behindName == std::string::npos || sscanf(stat.c_str() + behindName, ") %*c %d", &owner) != 1) continue;
    if (owner == parent) out.push_back(atoi(stat.c_str()));
  }
  return out;
}

std::vector<Exchange> Rows(const std::string& table) {
  std::vector<Exchange> rows;
  std::istringstream lines(Replaced(table, " ; ", "\n"));
  for (std::string line; std::getline(lines, line);) {
    const size_t start = line.find_first_not_of(' '), arrow = line.find(" => ");
    if (arrow != std::string::npos) rows.push_back({line.substr(start, arrow - start), line.substr(arrow + 4)});
  }
  return rows;
}

std::string FirstLine(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

std::string AgentBinary() {
  const char* other = getenv("TAV_BINARY");
  return other != nullptr ? other : TAV_BINARY;
}

bool Matches(const std::string& reply, const std::string& want) {
  const std::string lines = Replaced(want, "|", "\n");
  return lines[0] == '~' ? std::regex_match(reply, std::regex(lines.substr(1))) : reply == lines;
}

bool Sanitized() {
  return getenv("TAV_SANITIZED") != nullptr;
}

Agent::Agent() : folder(testing::TempDir() + "tav-e2e-XXXXXX"), port(FreePort()) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  if (!mkdtemp(&folder[0])) abort();
  fs::create_directory(folder + "/tmp");
  fs::copy_file(AgentBinary(), folder + "/tav");
}

Agent::Agent(const std::string& extra, const std::vector<std::string>& switches) : Agent() {
  Start(extra, switches);
}

void Agent::Start(const std::string& extra, const std::vector<std::string>& switches) {
  Write("tav.cfg", Defaults() + At(extra));
  Launch(switches);
}

Agent::~Agent() {
  if (pid > 0) kill(pid, SIGKILL);
  for (bool found = true; found;) {
    found = false;
    for (const pid_t child : Children(getpid())) {
      const std::string environment = ReadAll("/proc/" + std::to_string(child) + "/environ");
      if (child != pid && environment.find(folder) == std::string::npos) continue;
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);
      found = true;
    }
  }
  std::error_code ignored;
  fs::remove_all(folder, ignored);
}

void Agent::StartsBy(const std::string& commands) {
  program = folder + "/start";
  Write("start", "#!/bin/sh\n" + Replaced(commands, "%", AgentBinary() + " \"$@\"") + "\n");
}

void Agent::Spawn(const std::vector<std::string>& arguments) {
  std::vector<std::string> words = {program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(&word[0]);
  argv.push_back(nullptr);

  pid = fork();
  if (pid != 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const rlimit noCore{0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  setenv("TMPDIR", (folder + "/tmp").c_str(), 1);
  setenv("TZ", "TST-3", 1);  // not the zone of the tests
  const int in = open("/dev/null", O_RDONLY);
  const int out = open((folder + "/console").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  if (chdir(folder.c_str()) == 0 && dup2(in, 0) == 0 && dup2(out, 1) == 1 && dup2(out, 2) == 2 &&
      close_range(3, ~0U, 0) == 0)  // what other threads have open just now among them
    execv(argv[0], argv.data());
  _exit(127);
}

std::string Agent::Defaults() const {
  return "port=" + std::to_string(port) + "\npassword=" + password + "\ntavpath=" +
         At("@/tav\ntmpdir=@/tmp\npidfile=@/"
            "tav.pid\nhost=127.0.0.1\ndelayforscripts=0\nfilterlist=127.0.0.1\nfiltermarks=1\n");
}

void Agent::Launch(std::vector<std::string> arguments) {
  arguments.push_back(At("@/tav.cfg"));
  fs::remove(folder + "/console");
  Spawn(arguments);
  const bool interactive = arguments[0] == "-i";
  EXPECT_TRUE(interactive || ExitStatus() == 0);
  // A daemon shows nothing: its pid file or its verbose log tells.
  EXPECT_TRUE(WaitFor([&] {
    return Has(interactive ? "console" : "verbose.log", "Listening...") || PidInFile() > 0;
  })) << Console();
}

int Agent::Run(const std::vector<std::string>& arguments) {
  fs::remove(folder + "/console");
  Spawn(arguments);
  return ExitStatus();
}

bool Agent::HasEnded() {
  int wait = 0;
  if (pid == 0) return true;
  if (waitpid(pid, &wait, WNOHANG) != pid) return false;
  pid = 0;
  status = WIFSIGNALED(wait) ? 256 + WTERMSIG(wait) : WEXITSTATUS(wait);
  return true;
}

int Agent::ExitStatus() {
  return WaitFor([this] { return HasEnded(); }) ? status : -1;
}

bool Agent::Shows(const std::string& text, const std::string& file) const {
  return WaitFor([&] { return Has(file, text); });
}

size_t Agent::Count(const std::string& text) const {
  const std::string console = Console();
  size_t count = 0;
  for (size_t at = 0; (at = console.find(text, at)) != std::string::npos; at += text.size()) ++count;
  return count;
}

pid_t Agent::PidInFile() const {
  return atoi(Read("tav.pid").c_str());
}

bool Agent::HandsOverFrom(pid_t before) const {
  return WaitFor([&] {
    const pid_t now = PidInFile();
    return now > 0 && now != before;
  });
}

std::string Agent::At(std::string text) const {
  return Replaced(text, "@", folder);
}

void Agent::Write(const std::string& file, const std::string& content, long ageMinutes) const {
  const fs::path path = fs::path(folder) / file;
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << content;
  if (content.rfind("#!", 0) == 0) chmod(path.c_str(), 0755);
  if (ageMinutes != 0) Age(file, ageMinutes);
}

void Agent::Append(const std::string& file, const std::string& content) const {
  std::ofstream(folder + "/" + file, std::ios::binary | std::ios::app) << content;
}

void Agent::Age(const std::string& file, long minutes) const {
  fs::last_write_time(folder + "/" + file, fs::file_time_type::clock::now() - std::chrono::minutes(minutes));
}

std::string Agent::Read(const std::string& file) const {
  return ReadAll(folder + "/" + file);
}

bool Agent::Has(const std::string& file, const std::string& text) const {
  return Read(file).find(text) != std::string::npos;
}

bool Agent::TempFolderIsEmpty() const {
  return WaitFor([this] { return fs::is_empty(folder + "/tmp"); }, 5);
}

std::string Agent::AskRaw(const std::string& text, const std::string& source) const {
  static std::atomic<unsigned> sessions{0};  // session keys of every length from 0 to 40
  const Packet packet = Seal(text, password, std::string(sessions++ % 41, '\x9A'));
  const Socket socket = Connect(port, source);
  if (!socket.Send(packet.Bytes())) return "refused";
  const std::string reply = ReadReply(socket, packet.session);
  return reply == "closed" || socket.EndsSilently(3) ? reply : reply + " (and the connection stays open)";
}

std::string Agent::Ask(const std::string& request, const std::string& source) const {
  return AskRaw(Replaced(At(request) + "|", "|", "\r\n"), source);
}

std::future<std::string> Agent::Asking(const std::string& request) const {
  return std::async(std::launch::async, [this, request] { return Ask(request); });
}

void Agent::Expect(const std::string& request, const std::string& reply) const {
  const std::string got = Ask(request), want = At(reply);
  EXPECT_TRUE(Matches(got, want)) << request << "\n gave " << Replaced(got, "\n", "|") << "\n  not " << want;
}

void Agent::ExpectRows(const std::string& prefix, const std::string& table) const {
  for (const Exchange& row : Rows(table)) Expect(prefix + row.request, row.reply);
}

bool Agent::Serves() const {
  return FirstLine(Ask("GetInfo")) == "200";
}

bool Agent::Tells(const std::string& line) const {
  return (Ask("GetSettings") + "\n").find("\n" + line + "\n") != std::string::npos;
}

bool Agent::IsAlone() const {
  return WaitFor([this] { return Tells("ActiveConnections=1"); });
}

Packet Agent::Sealed(const std::string& request) const {
  return Seal(Replaced(At(request) + "|", "|", "\r\n"), password);
}

Socket Agent::Send(const std::string& request) const {
  const Socket socket = Connect(port);
  socket.Send(Sealed(request).Bytes());
  return socket;
}

std::string Agent::Upgrade(const std::string& file) const {
  const Socket socket = Send("UpgradeCode|" + std::to_string(file.size()));
  const std::string reply = ReadReply(socket);
  if (reply != "200") return reply;
  socket.Send(file + Digest(file));
  return ReadReply(socket);
}
