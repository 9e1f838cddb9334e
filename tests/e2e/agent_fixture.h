// Real agents for the end-to-end tests: each has its own folder, port and configuration, and leaves nothing behind.
// Restarts and upgrades work on a copy of the program.  An agent and all that it starts carry the folder's name in
// their environment; orphans come back to the test program, so the destructor finds and ends every one of them.
#pragma once

#include <sys/types.h>

#include <future>
#include <string>
#include <vector>

#include "peer.h"

// Tables of tests are text: rows of "request => reply", parted by line ends or " ; ".  In both "|" parts lines and
// "@" stands for the agent's folder.  A reply that begins with "~" is a regular expression.
struct Exchange {
  std::string request, reply;
};
std::vector<Exchange> Rows(const std::string& table);

// `text` with every `from` in it replaced.
std::string Replaced(std::string text, const std::string& from, const std::string& to);
std::string FirstLine(const std::string& text);
std::string ReadAll(const std::string& path);
// Whether a reply is what a row wants, "@" being replaced already.
bool Matches(const std::string& reply, const std::string& want);

// The agent that is tested: what TAV_BINARY names in the environment, else the one built beside the tests.
std::string AgentBinary();
// Slow, and with a memory that is not the agent's alone: TAV_SANITIZED is set in the environment.
bool Sanitized();

class Agent {
 public:
  Agent();  // a folder and a port, no process
  explicit Agent(const std::string& extra, const std::vector<std::string>& switches = {"-i"});  // started
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  // With a configuration of usable defaults, then these lines.
  void Start(const std::string& extra = "", const std::vector<std::string>& switches = {"-i"});
  void StartsBy(const std::string& commands);  // of the shell; in them "%" is the agent and its arguments
  void Spawn(const std::vector<std::string>& arguments);   // waits for nothing
  void Launch(std::vector<std::string> arguments);         // with the one that is there; waits until it listens
  int Run(const std::vector<std::string>& arguments);      // to its end: the exit status, 256 + n for a signal n
  bool HasEnded();                                         // then `status` says how, as Run does
  int ExitStatus();                                        // waits for the end; -1 when it does not come
  std::string Defaults() const;                            // the lines that every configuration starts with
  std::string Console() const { return Read("console"); }  // what the agent has printed
  bool Shows(const std::string& text, const std::string& file = "console") const;  // waits for it
  size_t Count(const std::string& text) const;                                     // how often the console shows it
  bool HandsOverFrom(pid_t before) const;  // waits until the pid file names another process
  pid_t PidInFile() const;                 // 0 when there is none

  // Files are relative to the agent's folder.
  std::string At(std::string text) const;
  void Write(const std::string& file, const std::string& content, long ageMinutes = 0) const;
  void Append(const std::string& file, const std::string& content) const;
  void Age(const std::string& file, long minutes) const;
  std::string Read(const std::string& file) const;
  bool Has(const std::string& file, const std::string& text) const;
  bool TempFolderIsEmpty() const;  // waits for it

  // One connection, one request, one reply as ReadReply gives it, and the peer's close.
  std::string Ask(const std::string& request, const std::string& source = "127.0.0.1") const;
  std::string AskRaw(const std::string& text, const std::string& source = "127.0.0.1") const;
  std::future<std::string> Asking(const std::string& request) const;
  void Expect(const std::string& request, const std::string& reply) const;
  void ExpectRows(const std::string& prefix, const std::string& table) const;  // asks prefix + request of each row
  bool Serves() const;
  bool Tells(const std::string& line) const;  // in its answer to GetSettings
  bool IsAlone() const;                       // waits until no session is left but the one that asks

  // Under kSession.
  Packet Sealed(const std::string& request) const;
  Socket Send(const std::string& request) const;       // the reply is still to be read
  std::string Upgrade(const std::string& file) const;  // sends it all; the last reply

  std::string folder, program = AgentBinary(), password = "secret";
  int port, status = -1;
  pid_t pid = 0;
};

int FreePort();
std::vector<pid_t> Children(pid_t parent);
