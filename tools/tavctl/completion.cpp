// completion: scripts for the shells, made from the command table.
#include <functional>
#include <set>

#include "tavctl/options.h"

namespace {

constexpr const char* kHelpAndVersion = "-h --help -V --version";

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

// "-r" and "--recurse", or the one of them that there is.
std::vector<std::string> SpellingsOf(const TArgRow& row) {
  const std::string spelling = row.spelling;
  const size_t comma = spelling.find(',');
  if (comma == std::string::npos) return {spelling};
  return {spelling.substr(0, comma), spelling.substr(comma + 1)};
}

std::string OptionsOf(const std::vector<TArgRow>& rows) {
  std::vector<std::string> options;
  for (const TArgRow& row : rows)
    if (IsOption(row))
      for (const std::string& spelling : SpellingsOf(row)) options.push_back(spelling);
  return Joined(options);
}

// The words that fit as arguments.
std::string ChoicesOf(const TCommandRow& row) {
  std::vector<std::string> words;
  for (const TArgRow& arg : row.args)
    if (!IsOption(arg) && arg.choices[0] != '\0') words.emplace_back(arg.choices);
  return Joined(words);
}

// Calls `take` for every option of all rows.
void EachOption(const std::function<void(const TArgRow&)>& take) {
  for (const TArgRow& row : GlobalOptions()) take(row);
  for (const TCommandRow& command : AllCommands())
    for (const TArgRow& row : command.args)
      if (IsOption(row)) take(row);
}

std::string OptionsWithValue() {
  std::string all;
  std::set<std::string> seen;
  EachOption([&](const TArgRow& row) {
    if (row.kind == TArgKind::kFlag) return;
    for (const std::string& spelling : SpellingsOf(row))
      if (seen.insert(spelling).second) all += (all.empty() ? "" : "|") + spelling;
  });
  return all;
}

// What fits behind an option that takes one of a few words.
std::string ValueCases() {
  std::string text = "  case \"$before\" in\n";
  std::set<std::string> seen;
  EachOption([&](const TArgRow& row) {
    if (row.choices[0] == '\0') return;
    for (const std::string& spelling : SpellingsOf(row))
      if (seen.insert(spelling).second) text += "    " + spelling + ") found='" + row.choices + "' ;;\n";
  });
  return text + "  esac\n";
}

// What bash and zsh share: which words fit behind the command words gathered in $at.
std::string Cases() {
  std::string text = "  case \"$at\" in\n    '') found='" + Joined(WordsBehind("")) + "' ;;\n";
  for (const std::string& group : Groups())
    text += "    '" + group + "') found='" + Joined(WordsBehind(group)) + "' ;;\n";
  for (const TCommandRow& row : AllCommands())
    text += "    '" + std::string(row.name) + "'*) found='" + ChoicesOf(row) + "'; options='" +
            OptionsOf(row.args) + "' ;;\n";
  return text + "  esac\n  case \"$current\" in -*) found=\"$options " + OptionsOf(GlobalOptions()) + " " +
         kHelpAndVersion + "\" ;; esac\n" + ValueCases();
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
         "  local current=\"${COMP_WORDS[COMP_CWORD]}\" at= skip= found= options= word\n"
         "  local before=\"${COMP_WORDS[COMP_CWORD-1]}\"\n"
         "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n" +
         Gather() + "  done\n" + Cases() +
         "  COMPREPLY=($(compgen -W \"$found\" -- \"$current\"))\n"
         "}\ncomplete -o default -F _tavctl tavctl\n";
}

std::string Zsh() {
  std::string wordsOnly = "''|completion";  // no file fits there
  for (const std::string& group : Groups()) wordsOnly += "|" + group;
  return "#compdef tavctl\n_tavctl() {\n"
         "  local current=\"${words[CURRENT]}\" at= skip= found= options= word\n"
         "  local before=\"${words[CURRENT-1]}\"\n"
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

// One option, given by `when` it fits.
std::string FishOption(const TArgRow& row, const std::string& when) {
  std::string line = "complete -c tavctl" + when;
  for (const std::string& spelling : SpellingsOf(row))
    line += spelling[1] == '-' ? " -l " + spelling.substr(2) : " -s " + spelling.substr(1);
  const bool file = row.kind == TArgKind::kInputFile || row.kind == TArgKind::kOutputFile;
  if (row.kind != TArgKind::kFlag) line += file ? " -r" : " -x";
  if (row.choices[0] != '\0') line += " -a " + FishQuoted(row.choices);
  return line + " -d " + FishQuoted(row.help) + "\n";
}

std::string FishCommand(const TCommandRow& row) {
  const std::string group = GroupOf(row.name), word = LastWord(row.name);
  const std::string when = group.empty()
                               ? "__fish_use_subcommand"
                               : "'__fish_seen_subcommand_from " + group +
                                     "; and not __fish_seen_subcommand_from " + Joined(WordsBehind(group)) + "'";
  const std::string seen = " -n '__fish_seen_subcommand_from " + word + "'";
  std::string text = "complete -c tavctl -f -n " + when + " -a " + word + " -d " + FishQuoted(row.help) + "\n";
  for (const TArgRow& arg : row.args)
    if (IsOption(arg)) text += FishOption(arg, seen);
  const std::string choices = ChoicesOf(row);
  if (!choices.empty()) text += "complete -c tavctl -f" + seen + " -a " + FishQuoted(choices) + "\n";
  return text;
}

std::string Fish() {
  std::string text = "# fish completion for tavctl\n";
  for (const TArgRow& row : GlobalOptions()) text += FishOption(row, "");
  text += "complete -c tavctl -s h -l help\ncomplete -c tavctl -s V -l version\n";
  for (const std::string& group : Groups())
    text += "complete -c tavctl -f -n __fish_use_subcommand -a " + group + "\n";
  for (const TCommandRow& row : AllCommands()) text += FishCommand(row);
  return text;
}

void RunCompletion(TContext&, const TArgs& args, TOutcome& outcome) {
  const std::string shell = args.Text("SHELL");
  const std::string text = shell == "bash" ? Bash() : shell == "zsh" ? Zsh() : Fish();
  outcome.printed = true;
  if (!WriteOut(text)) Fail(outcome.failure, TKind::kInternal, "the output cannot be written", "");
}

// The words before it are taken for global options, with which help does not go.
void RunHelp(TContext&, const TArgs&, TOutcome& outcome) {
  Fail(outcome.failure, TKind::kUsage, "'help' comes first", "tavctl help COMMAND");
}

}  // namespace

std::vector<TCommandRow> CompletionCommands() {
  return {
      Custom("completion", "Write a completion script for a shell",
             {{"SHELL", TArgKind::kText, "bash, zsh or fish", "bash zsh fish", true}}, RunCompletion)
          .Local(),
      Custom("help", "Show the help of a command", {{"[COMMAND...]", TArgKind::kText, "its words"}}, RunHelp)
          .Local(),
  };
}
