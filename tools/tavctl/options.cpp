#include "tavctl/options.h"

#include <string.h>

#include <CLI/CLI.hpp>
#include <deque>
#include <map>
#include <sstream>

#include "client/text.h"
#include "tavctl/helptext.h"

namespace {

constexpr TArgKind kFlag = TArgKind::kFlag, kFile = TArgKind::kInputFile, kPatience = TArgKind::kPatience;

// Where CLI11 puts what it reads, until it is moved into TArgs.
struct TBound {
  const TArgRow* row;
  CLI::Option* option;
  std::string value;                // of one that does not repeat
  std::vector<std::string> values;  // of one that does
};
using TBounds = std::deque<TBound>;

struct TBoundCommand {
  const TCommandRow* row;
  CLI::App* app;
  TBounds args;
};

void BindArg(const TArgRow& row, CLI::App* app, TBounds& bounds) {
  bounds.push_back({&row, nullptr, {}, {}});
  TBound& bound = bounds.back();
  if (row.kind == TArgKind::kFlag) {
    bound.option = app->add_flag(row.spelling, row.help);
    return;
  }
  const std::string name = IsOption(row) ? row.spelling : KeyOf(row);
  bound.option =
      Repeats(row) ? app->add_option(name, bound.values, row.help) : app->add_option(name, bound.value, row.help);
  std::function<std::string(std::string&)> plain = [&row](std::string& value) { return PlainArg(row, value); };
  bound.option->transform(CLI::Validator(plain, ""));
  bound.option->type_name(IsOption(row) ? PlaceholderOf(row.kind) : "");
  if (!IsOptional(row)) bound.option->required();
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
    for (const TArgRow& arg : row.args) BindArg(arg, app, commands.back().args);
  }
}

void BindGlobals(CLI::App& top, TBounds& bounds) {
  // The last one counts, so that a wrapper's choice can be overruled.
  top.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  for (const TArgRow& row : GlobalOptions()) {
    BindArg(row, &top, bounds);
    bounds.back().option->group("Global options");
  }
  top.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::Throw);
}

// The format must be known before the line is understood: an error has to come out in it, too.
TFormat FormatOf(const std::string& word) {
  if (word == "json") return TFormat::kJson;
  return word == "plain" ? TFormat::kPlain : TFormat::kTable;
}

TFormat GuessFormat(const std::vector<std::string>& words) {
  for (size_t i = 0; i < words.size() && words[i] != "--"; ++i) {
    const std::string& word = words[i];
    if ((word == "-o" || word == "--output") && i + 1 < words.size()) return FormatOf(words[i + 1]);
    if (word.compare(0, 9, "--output=") == 0) return FormatOf(word.substr(9));
    if (word.compare(0, 2, "-o") == 0) return FormatOf(word.substr(2));
  }
  return TFormat::kTable;
}

void TakeArgs(TBounds& bounds, TArgs& args) {
  for (TBound& bound : bounds) {
    if (bound.option->count() == 0) continue;
    if (!Repeats(*bound.row)) bound.values = {bound.value};
    args.Set(KeyOf(*bound.row), std::move(bound.values));
  }
}

bool TakeHost(const TArgs& globals, TOptions& options, TFailure& failure) {
  ParsePort(globals.Text("--port"), options.port);
  if (!globals.Has("--host")) return true;
  if (globals.Has("--hosts"))
    return Fail(failure, TKind::kUsage, "-H and --hosts exclude each other", "put the host into the file, too");
  TTarget target;
  const std::string given = globals.Text("--host");
  if (!ParseTarget(given, -1, target))
    return Fail(failure, TKind::kUsage, "'" + Visible(given) + "' is no host",
                "host, host:port, or [address]:port for an address with colons");
  options.host = target.host;
  if (target.port != -1 && options.port != 0 && options.port != target.port)
    return Fail(failure, TKind::kUsage, "-H and -p name different ports", "leave one of them out");
  if (target.port != -1) options.port = target.port;
  return true;
}

bool TakeGlobals(const TArgs& globals, TOptions& options, TFailure& failure) {
  options.timeoutMs = globals.Milliseconds("--timeout", options.timeoutMs);
  options.deadlineMs = globals.Milliseconds("--deadline", 0);
  options.secrets.passwordFile = globals.Text("--password-file");
  options.secrets.agentConfig = globals.Text("--agent-config");
  options.hostsFile = globals.Text("--hosts");
  options.jobs = static_cast<int>(globals.Number("--jobs", options.jobs));
  options.format = FormatOf(globals.Text("--output"));
  options.noColour = globals.Has("--no-color");
  options.quiet = globals.Has("--quiet");
  options.verbose = globals.Has("--verbose");
  return TakeHost(globals, options, failure);
}

// Standard input can be read once.
bool OneStandardInput(const TArgs& globals, const TInvocation& invocation, TFailure& failure) {
  int readers = 0;
  const auto count = [&readers](const std::vector<TArgRow>& rows, const TArgs& args) {
    for (const TArgRow& row : rows) readers += row.kind == kFile && args.Text(KeyOf(row)) == "-";
  };
  count(GlobalOptions(), globals);
  count(invocation.row->args, invocation.args);
  return readers < 2 || Fail(failure, TKind::kUsage, "'-' stands for standard input twice", "give a file for one");
}

// What a word that nobody expected was probably meant to be.
std::string DidYouMean(const std::string& complaint) {
  std::vector<std::string> known;
  const auto add = [&known](const std::vector<TArgRow>& rows) {
    for (const TArgRow& row : rows)
      if (IsOption(row)) known.push_back(KeyOf(row));
  };
  add(GlobalOptions());
  for (const TCommandRow& row : AllCommands()) {
    const std::string name = row.name;
    known.push_back(name.substr(0, name.find(' ')));
    known.push_back(name.substr(name.find(' ') + 1));
    add(row.args);
  }
  std::istringstream words(complaint.substr(std::min(complaint.size(), complaint.find(": ") + 1)));
  for (std::string word; words >> word;) {
    const std::string near = Nearest(word, known);
    if (!near.empty()) return "did you mean '" + near + "'?";
  }
  return "";
}

bool Refused(const CLI::App& top, const CLI::ParseError& error, TFailure& failure) {
  if (error.get_exit_code() != 0) {
    const bool unexpected = dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    return Fail(failure, TKind::kUsage, error.what(), unexpected ? DidYouMean(error.what()) : "");
  }
  std::ostringstream text;
  top.exit(error, text, text);
  return WriteOut(Wrapped(text.str(), 80)) ||
         Fail(failure, TKind::kInternal, "the output cannot be written", "is the disk full, or the reader gone?");
}

bool NoCommand(const CLI::App& top, TFailure& failure) {
  for (const CLI::App* group : top.get_subcommands())
    return Fail(failure, TKind::kUsage, "'" + group->get_name() + "' needs a command behind it",
                "'tavctl " + group->get_name() + " --help' lists them");
  return Fail(failure, TKind::kUsage, "no command given", "'tavctl --help' lists them");
}

// "help test disk" is "test disk --help".
std::vector<std::string> WordsOf(int argc, char** argv) {
  std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
  if (words.empty() || words[0] != "help") return words;
  words.erase(words.begin());
  words.emplace_back("--help");
  return words;
}

}  // namespace

const std::vector<TArgRow>& GlobalOptions() {
  static const std::vector<TArgRow> rows = {
      {"-H,--host", TArgKind::kName, "The agent's host, or host:port (127.0.0.1)"},
      {"-p,--port", TArgKind::kPort, "The agent's port (1055)"},
      {"-t,--timeout", kPatience, "Give up when nothing has moved for so long (10)"},
      {"--deadline", kPatience, "Give a host so long for all of it (300, and what --wait or --for add)"},
      {"--password-file", kFile, "File that holds the password; - is standard input"},
      {"--agent-config", kFile, "Take port, address and password from the agent's own file"},
      {"--hosts", kFile, "Ask every host of this file, a line or object each"},
      {"-j,--jobs", TArgKind::kCount, "So many hosts at once (8)"},
      {"-o,--output", TArgKind::kText, "table, plain (one value a line) or json", "table plain json", true},
      {"--no-color", kFlag, "No colours, as with NO_COLOR in the environment"},
      {"-q,--quiet", kFlag, "No notes, no advice, no progress"},
      {"-v,--verbose", kFlag, "Say what is being done"},
  };
  return rows;
}

bool ParseCommandLine(int argc, char** argv, TInvocation& invocation, TFailure& failure) {
  CLI::App top("tavctl - talk to tav monitoring agents", "tavctl");
  top.fallthrough();
  top.set_version_flag("-V,--version", "tavctl " TAVCTL_VERSION);
  TBounds globalBounds;
  std::deque<TBoundCommand> commands;
  BindGlobals(top, globalBounds);
  BindCommands(top, commands);
  std::vector<std::string> words = WordsOf(argc, argv);
  invocation.options.format = GuessFormat(words);
  try {
    std::reverse(words.begin(), words.end());  // as CLI11 takes them
    top.parse(words);
  } catch (const CLI::ParseError& error) {
    return Refused(top, error, failure);
  }

  TArgs globals;
  TakeArgs(globalBounds, globals);
  for (TBoundCommand& command : commands) {
    if (!command.app->parsed()) continue;
    invocation.row = command.row;
    TakeArgs(command.args, invocation.args);
  }
  if (!TakeGlobals(globals, invocation.options, failure)) return false;
  if (invocation.row == nullptr) return NoCommand(top, failure);
  return OneStandardInput(globals, invocation, failure);
}
