// completion: scripts for the shells, made from the command table.
#include <set>
#include <sstream>

#include "tavctl/commands.h"

namespace {

constexpr const char* kGlobals =
    "-H --host -p --port -t --timeout --password-file --agent-config --hosts -j --jobs -o --output --no-color "
    "-q --quiet -v --verbose --help --version";
// Those that take the next word.
constexpr const char* kGlobalsWithValue =
    "-H|--host|-p|--port|-t|--timeout|--password-file|--agent-config|--hosts|-j|--jobs|-o|--output";

std::string GroupOf(const std::string& name) {
  const size_t blank = name.find(' ');
  return blank == std::string::npos ? "" : name.substr(0, blank);
}

std::string LastWord(const std::string& name) {
  return name.substr(name.find(' ') + 1);
}

// The words behind nothing, and behind each group.
std::vector<std::string> WordsBehind(const std::string& group) {
  std::vector<std::string> words;
  std::set<std::string> seen;
  for (const TCommandRow& row : AllCommands()) {
    const std::string own = GroupOf(row.name);
    const std::string word = own == group ? LastWord(row.name) : group.empty() ? own : "";
    if (!word.empty() && seen.insert(word).second) words.push_back(word);
  }
  return words;
}

std::set<std::string> Groups() {
  std::set<std::string> groups;
  for (const TCommandRow& row : AllCommands())
    if (!GroupOf(row.name).empty()) groups.insert(GroupOf(row.name));
  return groups;
}

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

std::string OptionsOf(const TCommandRow& row) {
  std::vector<std::string> options;
  for (const TArgRow& arg : row.args)
    if (IsOption(arg)) options.push_back(KeyOf(arg));
  return Joined(options);
}

std::string OptionsWithValue() {
  std::string all = kGlobalsWithValue;
  std::set<std::string> seen;
  for (const TCommandRow& row : AllCommands())
    for (const TArgRow& arg : row.args)
      if (IsOption(arg) && arg.kind != TArgKind::kFlag && seen.insert(KeyOf(arg)).second) all += "|" + KeyOf(arg);
  return all;
}

// What bash and zsh share: which words fit behind the command words gathered in $at.
std::string Cases() {
  std::string text = "  case \"$at\" in\n    '') found='" + Joined(WordsBehind("")) + "' ;;\n";
  for (const std::string& group : Groups())
    text += "    '" + group + "') found='" + Joined(WordsBehind(group)) + "' ;;\n";
  for (const TCommandRow& row : AllCommands()) {
    const std::string extra = std::string(row.name) == "completion" ? "bash zsh fish " : "";
    text += "    '" + std::string(row.name) + "'*) found='" + extra + OptionsOf(row) + "' ;;\n";
  }
  return text + "  esac\n  case \"$current\" in -*) found=\"$found " + kGlobals + "\" ;; esac\n";
}

// Words that only follow an option are no part of the command.
std::string Gather() {
  return "    if [ -n \"$skip\" ]; then skip=; continue; fi\n"
         "    case \"$word\" in\n"
         "      " +
         OptionsWithValue() +
         ") skip=1 ;;\n"
         "      -*) ;;\n"
         "      *) at=\"${at:+$at }$word\" ;;\n"
         "    esac\n";
}

std::string Bash() {
  return "# bash completion for tavctl\n_tavctl() {\n"
         "  local current=\"${COMP_WORDS[COMP_CWORD]}\" at= skip= found= word\n"
         "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n" +
         Gather() + "  done\n" + Cases() +
         "  COMPREPLY=($(compgen -W \"$found\" -- \"$current\"))\n"
         "}\ncomplete -o default -F _tavctl tavctl\n";
}

std::string Zsh() {
  std::string wordsOnly = "''|completion";  // no file fits there
  for (const std::string& group : Groups()) wordsOnly += "|" + group;
  return "#compdef tavctl\n_tavctl() {\n"
         "  local current=\"${words[CURRENT]}\" at= skip= found= word\n"
         "  for word in \"${(@)words[2,CURRENT-1]}\"; do\n" +
         Gather() + "  done\n" + Cases() + "  compadd -- ${=found}\n  case \"$at\" in " + wordsOnly +
         ") ;; *) _files ;; esac\n"
         "}\ncompdef _tavctl tavctl\n";
}

std::string FishQuoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' || c == '\\' ? std::string("\\") + c : std::string(1, c);
  return quoted + "'";
}

// The global options, long and short.
std::string FishGlobals() {
  const std::string withValue = "|" + std::string(kGlobalsWithValue) + "|";
  std::istringstream globals(kGlobals);
  std::string text;
  for (std::string option; globals >> option;) {
    const bool isLong = option[1] == '-';
    text += "complete -c tavctl" + std::string(isLong ? " -l " : " -s ") + option.substr(isLong ? 2 : 1) +
            (withValue.find("|" + option + "|") == std::string::npos ? "" : " -r") + "\n";
  }
  return text;
}

std::string Fish() {
  std::string text = "# fish completion for tavctl\n" + FishGlobals() +
                     "complete -c tavctl -f -n '__fish_seen_subcommand_from completion' -a 'bash zsh fish'\n";
  for (const std::string& group : Groups())
    text += "complete -c tavctl -f -n __fish_use_subcommand -a " + group + "\n";
  for (const TCommandRow& row : AllCommands()) {
    const std::string group = GroupOf(row.name), word = LastWord(row.name);
    const std::string when = group.empty()
                                 ? "__fish_use_subcommand"
                                 : "'__fish_seen_subcommand_from " + group +
                                       "; and not __fish_seen_subcommand_from " + Joined(WordsBehind(group)) + "'";
    text += "complete -c tavctl -f -n " + when + " -a " + word + " -d " + FishQuoted(row.help) + "\n";
    for (const TArgRow& arg : row.args)
      if (IsOption(arg))
        text += "complete -c tavctl -n '__fish_seen_subcommand_from " + word + "' -l " + KeyOf(arg).substr(2) +
                (arg.kind == TArgKind::kFlag ? "" : " -r") + " -d " + FishQuoted(arg.help) + "\n";
  }
  return text;
}

void RunCompletion(TContext&, const TArgs& args, TOutcome& outcome) {
  const std::string shell = args.Text("SHELL");
  const std::string text = shell == "bash" ? Bash() : shell == "zsh" ? Zsh() : shell == "fish" ? Fish() : "";
  if (text.empty()) {
    Fail(outcome.failure, TKind::kUsage, "no completion for '" + shell + "'", "bash, zsh and fish are known");
    return;
  }
  outcome.printed = true;
  if (!WriteOut(text)) Fail(outcome.failure, TKind::kInternal, "the output cannot be written", "");
}

}  // namespace

std::vector<TCommandRow> CompletionCommands() {
  return {
      Custom("completion", "Write a completion script for a shell",
             {{"SHELL", TArgKind::kText, "bash, zsh or fish"}}, RunCompletion)
          .Local(),
  };
}
