// ls and ps.
#include <algorithm>

#include "core/filesearch.h"
#include "tavctl/commands.h"

namespace {

// The agent drops a wildcard that stands in the folder; as its mask it counts.
void SplitMask(const std::string& path, std::string& folder, std::string& mask) {
  const size_t slash = path.rfind('/');
  const std::string last = slash == std::string::npos ? path : path.substr(slash + 1);
  folder = path;
  if (last.find_first_of("*?[") == std::string::npos) return;
  mask = last;
  folder = path.substr(0, slash == std::string::npos ? 0 : slash + 1);
}

std::string Letters(long long bits) {
  std::string letters;
  letters += bits & AttrDirectory ? 'd' : bits & AttrSystem ? 's' : '-';
  letters += bits & AttrReadOnly ? 'r' : '-';
  letters += bits & AttrHidden ? 'h' : '-';
  return letters;
}

std::vector<TColumn> ColumnsOf(bool detailed) {
  if (!detailed) return {{"name", "", TUnit::kNone}};
  return {{"kind", "kind", TUnit::kNone},
          {"size", "size", TUnit::kBytes},
          {"modified", "modified", TUnit::kNone},
          {"name", "name", TUnit::kNone}};
}

struct TEntry {
  std::string name;
  long long bits = 0;
  long long size = 0;
  std::string modified;
};

std::vector<TValue> RowOf(const TEntry& entry, bool detailed) {
  if (detailed) return {Letters(entry.bits), entry.size, entry.modified, entry.name};
  return {entry.bits & AttrDirectory ? entry.name + "/" : entry.name};
}

std::vector<TEntry> DecodeEntries(TReader& reader, bool detailed, bool all, long long count) {
  std::vector<TEntry> entries;
  for (long long i = 0; i < count; ++i) {
    TEntry entry;
    entry.name = reader.Text("name");
    entry.bits = reader.Number("attributes");
    if (detailed) entry.size = reader.Number("size");
    if (detailed) entry.modified = reader.When("time");
    if (entry.name != ".." || all) entries.push_back(std::move(entry));
  }
  return entries;
}

void RunLs(TContext& context, const TArgs& args, TOutcome& outcome) {
  const bool detailed = args.Has("--long"), all = args.Has("--all");
  std::string folder, mask;
  SplitMask(args.Text("DIR", "/"), folder, mask);
  TParams params;
  params.Text(1, folder);
  params.Text(2, mask);
  params.Flag(3, mask.empty());  // the mask does not apply to folders
  params.Flag(4, true);
  params.Flag(5, all);
  params.Flag(6, true);
  params.Flag(7, detailed);
  params.Flag(8, false);
  params.Flag(9, detailed);
  TReply reply;
  if (!AskAgent(*context.agent, "GetFilesList", params, reply, outcome.failure)) return;

  TReader reader(reply);
  const std::string listed = reader.Text("folder");
  const long long count = reader.Number("number of entries");
  const long long width = reader.Number("number of columns");
  if (count < 0 || width != (detailed ? 4 : 2) || static_cast<long long>(reply.lines.size()) != 3 + count * width) {
    Fail(outcome.failure, TKind::kUndecodable, "the reply does not hold the entries that it announces");
    return;
  }
  std::vector<TEntry> entries = DecodeEntries(reader, detailed, all, count);
  if (!reader.Finish(outcome.failure)) return;
  // Folders first, then by name; the agent lists them as the folder happens to hold them.
  std::stable_sort(entries.begin(), entries.end(), [](const TEntry& a, const TEntry& b) {
    const bool folderA = a.bits & AttrDirectory, folderB = b.bits & AttrDirectory;
    return folderA != folderB ? folderA : a.name < b.name;
  });
  TTable table{"entries", ColumnsOf(detailed), {}};
  for (const TEntry& entry : entries) table.rows.push_back(RowOf(entry, detailed));
  if (context.view.format == TFormat::kJson) outcome.result.Add("folder", "folder", listed);
  // A name that is no folder, or none that is there, is cut by the agent to the folder that would hold it.
  if (!folder.empty() && listed != folder && listed != folder + "/")
    Note(context.view, "tavctl: '" + folder + "' is no folder there; listed instead: " + listed);
  // An empty list with not even ".." in it is how the agent says that it cannot open the folder.
  if (count == 0 && mask.empty())
    Note(context.view,
         "tavctl: nothing listed: '" + listed + "' is not there, or the agent's user may not read it");
  outcome.result.tables.push_back(table);
}

void RunPs(TContext& context, const TArgs&, TOutcome& outcome) {
  TReply reply;
  if (!AskAgent(*context.agent, "GetProcessesList", TParams(), reply, outcome.failure, 30000)) return;
  TReader reader(reply);
  std::vector<std::string> lines = SplitLines(reader.Decoded("list"));
  if (!reader.Finish(outcome.failure)) return;
  // Agents give the last line twice when the list ends with a line break, as every list does.
  if (lines.size() > 1 && lines[lines.size() - 1] == lines[lines.size() - 2]) lines.pop_back();
  TTable table{"processes", {{"process", "", TUnit::kNone}}, {}};
  for (std::string& line : lines) table.rows.push_back({std::move(line)});
  outcome.result.tables.push_back(table);
}

}  // namespace

std::vector<TCommandRow> ListCommands() {
  return {
      Custom("ls", "List a folder of the host",
             {{"[DIR]", TArgKind::kText, "the folder (/), or a wildcard for some of its files"},
              {"-l,--long", TArgKind::kFlag, "with kind, size and time"},
              {"-a,--all", TArgKind::kFlag, "with hidden names and .."}},
             RunLs),
      Custom("ps", "List the host's processes", {}, RunPs),
  };
}
