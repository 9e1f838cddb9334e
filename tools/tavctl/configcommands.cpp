// config: check and init.
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "client/inputfiles.h"
#include "core/writeall.h"
#include "tavctl/commands.h"
#include "tavctl/configcheck.h"
#include "tavctl/configinit.h"

namespace {

// For people a compiler's form, for programs the parts.
void AddFindings(const TContext& context, const std::string& name, const std::vector<TFinding>& findings,
                 TResult& result) {
  TTable table{"findings", {{"finding", "", TUnit::kNone}}, {}};
  if (context.view.format == TFormat::kJson)
    table.columns = {{"severity", "", TUnit::kNone},
                     {"file", "", TUnit::kNone},
                     {"line", "", TUnit::kNone},
                     {"text", "", TUnit::kNone}};
  for (const TFinding& finding : findings) {
    const std::string severity = finding.fatal ? "error" : "warning";
    const long long line = finding.line;
    if (context.view.format == TFormat::kJson)
      table.rows.push_back({severity, name, line, finding.text});
    else
      table.rows.push_back({name + ":" + std::to_string(line) + ": " + severity + ": " + finding.text});
  }
  result.tables.push_back(table);
}

void RunCheck(TContext& context, const TArgs& args, TOutcome& outcome) {
  std::vector<TFinding> findings;
  TFd copy;
  std::string path;
  int port = 0;
  const std::string given = args.Text("FILE"), name = given == "-" ? "(standard input)" : given;
  if (!InputPath(given, path, copy, outcome.failure)) return;
  if (!CheckConfig(path, findings, port, outcome.failure)) return;
  int counted = 0;
  for (const TFinding& finding : findings) counted += finding.fatal || args.Has("--strict");
  AddFindings(context, name, findings, outcome.result);
  if (findings.empty()) Note(context.view, "tavctl: '" + name + "' is in order");
  if (counted > 0)
    Fail(outcome.failure, TKind::kConfig,
         "'" + name + "' has " + std::to_string(counted) + (counted == 1 ? " error" : " errors"),
         "an agent should not be started with it");
}

// Never over a file that is there: it may hold the only copy of a password.
bool WriteNew(const std::string& path, const std::string& text, TFailure& failure) {
  const bool standard = path == "-";
  TFd fd(standard ? dup(STDOUT_FILENO) : open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!fd.IsOpen())
    return Fail(failure, TKind::kInput, "cannot create '" + path + "': " + strerror(errno),
                "a file that is there is never overwritten");
  const bool written =
      WriteAll(fd.Get(), text.data(), static_cast<long long>(text.size())) && (standard || fsync(fd.Get()) == 0);
  if (written) return true;
  if (standard) return Fail(failure, TKind::kInternal, "the output cannot be written", "is the disk full?");
  Fail(failure, TKind::kInput, "cannot write '" + path + "': " + strerror(errno));
  (void)unlink(path.c_str());
  return false;
}

void RunInit(TContext&, const TArgs& args, TOutcome& outcome) {
  String password;
  const std::string path = args.Text("FILE");
  if (path != "-" && access(path.c_str(), F_OK) == 0) {
    Fail(outcome.failure, TKind::kInput, "'" + path + "' is there already",
         "a file that is there is never overwritten");
    return;
  }
  TPlaces places;
  if (!RandomPassword(password, outcome.failure)) return;
  if (!FindPlaces(path, args.Text("--tavpath"), places, outcome.failure)) return;
  std::string text = SampleConfig(password, places);
  const bool written = WriteNew(path, text, outcome.failure);
  explicit_bzero(text.data(), text.size());
  outcome.printed = path == "-";
  if (!outcome.printed && written) outcome.result.Add("file", "written", path);
}

}  // namespace

std::vector<TCommandRow> ConfigCommands() {
  const TArgKind in = TArgKind::kInputFile, out = TArgKind::kOutputFile;
  return {
      Custom("config check", "Check a configuration file of the agent",
             {{"FILE", in, "the file; - is standard input"},
              {"--strict", TArgKind::kFlag, "warnings count as errors"}},
             RunCheck)
          .Local(),
      Custom("config init", "Write a sample configuration file with a random password",
             {{"FILE", out, "the new file; - is standard output"},
              {"--tavpath", out, "the agent's program (the one beside tavctl, else /usr/sbin/tav)"}},
             RunInit)
          .Local(),
  };
}
