#include "tavctl/options.h"

#include <string.h>

#include <CLI/CLI.hpp>
#include <deque>
#include <map>

#include "client/text.h"

namespace {

// Where CLI11 puts what it reads, until it is moved into TArgs.
struct TBound {
  const TArgRow* row;
  CLI::Option* option;
  std::string value;                // of one that does not repeat
  std::vector<std::string> values;  // of one that does
};

struct TBoundCommand {
  const TCommandRow* row;
  CLI::App* app;
  std::deque<TBound> args;
};

CLI::Validator CheckOf(TArgKind kind) {
  std::function<std::string(std::string&)> check = [kind](std::string& value) { return ArgFault(kind, value); };
  return CLI::Validator(check, "");
}

const char* PlaceholderOf(TArgKind kind) {
  switch (kind) {
    case TArgKind::kNumber:
      return "N";
    case TArgKind::kSeconds:
      return "SECONDS";
    case TArgKind::kPort:
      return "PORT";
    case TArgKind::kLocalFile:
      return "FILE";
    default:
      return "TEXT";
  }
}

void BindArg(const TArgRow& row, CLI::App* app, TBoundCommand& command) {
  command.args.push_back({&row, nullptr, {}, {}});
  TBound& bound = command.args.back();
  if (row.kind == TArgKind::kFlag) {
    bound.option = app->add_flag(row.spelling, row.help);
    return;
  }
  const std::string name = IsOption(row) ? row.spelling : KeyOf(row);
  bound.option =
      Repeats(row) ? app->add_option(name, bound.values, row.help) : app->add_option(name, bound.value, row.help);
  bound.option->check(CheckOf(row.kind));
  if (IsOption(row)) bound.option->type_name(PlaceholderOf(row.kind));
  if (!IsOptional(row)) bound.option->required();
  if (!IsOption(row)) bound.option->type_name("");
}

// "test disk" hangs below "test", which asks for one of its commands.
CLI::App* ParentOf(CLI::App& top, const std::string& name, std::map<std::string, CLI::App*>& groups) {
  static const std::map<std::string, const char*> kGroups = {
      {"test", "Examine the host or what it can reach"},
      {"act", "Have the agent do something"},
      {"settings", "Show and change the agent's settings"},
      {"config", "Check and make configuration files (no agent needed)"},
  };
  const size_t blank = name.find(' ');
  if (blank == std::string::npos) return &top;
  const std::string group = name.substr(0, blank);
  CLI::App*& app = groups[group];
  if (app != nullptr) return app;
  app = top.add_subcommand(group, kGroups.at(group));
  return app;
}

void BindCommands(CLI::App& top, std::deque<TBoundCommand>& commands) {
  std::map<std::string, CLI::App*> groups;
  for (const TCommandRow& row : AllCommands()) {
    const std::string name = row.name;
    CLI::App* app = ParentOf(top, name, groups)->add_subcommand(name.substr(name.find(' ') + 1), row.help);
    commands.push_back({&row, app, {}});
    for (const TArgRow& arg : row.args) BindArg(arg, app, commands.back());
  }
}

void BindGlobals(CLI::App& top, TOptions& options, std::string& port, std::string& timeout, std::string& jobs,
                 std::string& format) {
  const char* group = "Global options";
  // The last one counts, so that a wrapper's choice can be overruled.
  top.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  top.add_option("-H,--host", options.host, "The agent's host (127.0.0.1)")->type_name("HOST")->group(group);
  top.add_option("-p,--port", port, "The agent's port (1055)")
      ->check(CheckOf(TArgKind::kPort))
      ->type_name("PORT")
      ->group(group);
  top.add_option("-t,--timeout", timeout, "Give up when nothing has moved for so long (10)")
      ->check(CheckOf(TArgKind::kSeconds))
      ->type_name("SECONDS")
      ->group(group);
  top.add_option("--password-file", options.secrets.passwordFile,
                 "File that holds the password; - is standard input")
      ->type_name("FILE")
      ->group(group);
  top.add_option("--agent-config", options.secrets.agentConfig, "Take port and password from the agent's own file")
      ->type_name("FILE")
      ->group(group);
  top.add_option("--hosts", options.hostsFile, "Ask every host of this file, a line or object each")
      ->type_name("FILE")
      ->group(group);
  top.add_option("-j,--jobs", jobs, "So many hosts at once (8)")
      ->check(CheckOf(TArgKind::kNumber))
      ->type_name("N")
      ->group(group);
  top.add_option("-o,--output", format, "table, plain (one value a line) or json")
      ->check(CLI::IsMember({"table", "plain", "json"}))
      ->type_name("FORMAT")
      ->group(group);
  top.add_flag("--no-color", options.noColour, "No colours, as with NO_COLOR in the environment")->group(group);
  top.add_flag("-q,--quiet", options.quiet, "No notes, no advice, no progress")->group(group);
  top.add_flag("-v,--verbose", options.verbose, "Say what is being done")->group(group);
  top.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::Throw);
}

// The format must be known before the line is understood: an error has to come out in it, too.
TFormat FormatOf(const std::string& word) {
  if (word == "json") return TFormat::kJson;
  return word == "plain" ? TFormat::kPlain : TFormat::kTable;
}

TFormat GuessFormat(int argc, char** argv) {
  for (int i = 1; i < argc && strcmp(argv[i], "--") != 0; ++i) {
    const std::string arg = argv[i];
    if ((arg == "-o" || arg == "--output") && i + 1 < argc) return FormatOf(argv[i + 1]);
    if (arg.compare(0, 9, "--output=") == 0) return FormatOf(arg.substr(9));
    if (arg.compare(0, 2, "-o") == 0) return FormatOf(arg.substr(2));
  }
  return TFormat::kTable;
}

void TakeArgs(TBoundCommand& command, TInvocation& invocation) {
  invocation.row = command.row;
  for (TBound& bound : command.args) {
    if (bound.option->count() == 0) continue;
    if (!Repeats(*bound.row)) bound.values = {bound.value};
    invocation.args.Set(KeyOf(*bound.row), std::move(bound.values));
  }
}

}  // namespace

bool ParseCommandLine(int argc, char** argv, TInvocation& invocation, TFailure& failure) {
  CLI::App top("tavctl - talk to tav monitoring agents", "tavctl");
  top.fallthrough();
  top.set_version_flag("--version", "tavctl " TAVCTL_VERSION);
  std::string port, timeout, jobs, format;
  std::deque<TBoundCommand> commands;
  TOptions& options = invocation.options;
  BindGlobals(top, options, port, timeout, jobs, format);
  BindCommands(top, commands);
  options.format = GuessFormat(argc, argv);

  try {
    top.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return top.exit(error), true;
    return Fail(failure, TKind::kUsage, error.what());
  }

  double seconds = 0;
  if (!port.empty()) ParsePort(port, options.port);
  if (ParseSeconds(timeout, seconds)) options.timeoutMs = static_cast<long long>(seconds * 1000);
  if (!jobs.empty()) options.jobs = std::max(1, atoi(jobs.c_str()));
  for (TBoundCommand& command : commands)
    if (command.app->parsed()) TakeArgs(command, invocation);
  if (invocation.row != nullptr) return true;
  for (const CLI::App* group : top.get_subcommands())
    return Fail(failure, TKind::kUsage, "'" + group->get_name() + "' needs a command behind it",
                "'tavctl " + group->get_name() + " --help' lists them");
  return Fail(failure, TKind::kUsage, "no command given", "'tavctl --help' lists them");
}
