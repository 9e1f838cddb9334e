// config: check and init.
#include <errno.h>
#include <fcntl.h>
#include <string.h>

#include "core/closers.h"
#include "core/writeall.h"
#include "tavctl/commands.h"
#include "tavctl/configcheck.h"
#include "tavctl/configinit.h"

namespace {

void RunCheck(TContext& context, const TArgs& args, TOutcome& outcome) {
  std::vector<TFinding> findings;
  if (!CheckConfig(args.Text("FILE"), findings, outcome.failure)) return;
  TTable table{"findings",
               {{"severity", "", TUnit::kNone}, {"line", "line", TUnit::kNone}, {"text", "finding", TUnit::kNone}},
               {}};
  int fatal = 0;
  for (const TFinding& finding : findings) {
    fatal += finding.fatal;
    table.rows.push_back({finding.fatal ? "error" : "warning", static_cast<long long>(finding.line), finding.text});
  }
  if (findings.empty()) Note(context.view, "tavctl: '" + args.Text("FILE") + "' is in order");
  outcome.result.tables.push_back(table);
  if (fatal > 0)
    Fail(outcome.failure, TKind::kConfig,
         "'" + args.Text("FILE") + "' has " + std::to_string(fatal) + (fatal == 1 ? " error" : " errors"),
         "an agent should not be started with it");
}

// Never over a file that is there: it may hold the only copy of a password.
bool WriteNew(const std::string& path, const std::string& text, TFailure& failure) {
  TFd fd(path == "-" ? dup(STDOUT_FILENO) : open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!fd.IsOpen())
    return Fail(failure, TKind::kInput, "cannot create '" + path + "': " + strerror(errno),
                "a file that is there is never overwritten");
  const bool written =
      WriteAll(fd.Get(), text.data(), static_cast<long long>(text.size())) && (path == "-" || fsync(fd.Get()) == 0);
  if (written) return true;
  Fail(failure, TKind::kInput, "cannot write '" + path + "': " + strerror(errno));
  if (path != "-") (void)unlink(path.c_str());
  return false;
}

void RunInit(TContext&, const TArgs& args, TOutcome& outcome) {
  String password;
  const std::string path = args.Text("FILE");
  if (!RandomPassword(password, outcome.failure)) return;
  std::string text = SampleConfig(password, args.Text("--tavpath", "/usr/sbin/tav"));
  const bool written = WriteNew(path, text, outcome.failure);
  explicit_bzero(text.data(), text.size());
  if (path == "-")
    outcome.printed = true;
  else if (written)
    outcome.result.Add("file", "written", path);
}

}  // namespace

std::vector<TCommandRow> ConfigCommands() {
  const TArgKind file = TArgKind::kLocalFile;
  return {
      Custom("config check", "Check a configuration file of the agent", {{"FILE", file, "the file"}}, RunCheck)
          .Local(),
      Custom("config init", "Write a sample configuration file with a random password",
             {{"FILE", file, "the new file; - is standard output"},
              {"--tavpath", file, "the agent's program (/usr/sbin/tav)"}},
             RunInit)
          .Local(),
  };
}
