// ls and ps.
#include <algorithm>

#include "client/text.h"
#include "core/filesearch.h"
#include "protocol/parameters.h"
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

// What the agent was asked for and said, before it is made out.
struct TListing {
  std::string folder, mask;
  bool detailed = false, all = false;
  std::string listed;  // the folder, as the agent names it
  std::vector<TEntry> entries;
};

bool AskListing(const TAgent& agent, const TListing& listing, TReply& reply, TFailure& failure) {
  namespace at = params::files_list;
  TParams params;
  params.Text(at::kFolder, listing.folder);
  params.Text(at::kMask, listing.mask);
  params.Flag(at::kFolders, listing.mask.empty());  // the mask does not apply to folders
  params.Flag(at::kFiles, true);
  params.Flag(at::kHidden, listing.all);
  params.Flag(at::kSystem, true);
  params.Flag(at::kSizes, listing.detailed);
  params.Flag(at::kStatusTimes, false);
  params.Flag(at::kChangeTimes, listing.detailed);
  return AskAgent(agent, "GetFilesList", params, reply, failure);
}

// The lines behind an entry's name.
bool TakeDetails(const std::vector<std::string>& lines, size_t at, bool detailed, TEntry& entry) {
  if (lines.size() - at < (detailed ? 3u : 1u)) return false;
  if (!ParseNumber(lines[at], entry.bits) || entry.bits < 0 || entry.bits > AttrAnyFile) return false;
  return !detailed || (ParseNumber(lines[at + 1], entry.size) && ParseWhen(lines[at + 2], entry.modified));
}

// A name that holds line breaks takes more lines than one; with size and time behind it, it is told from what
// follows.
bool DecodeEntries(const std::vector<std::string>& lines, size_t at, TListing& listing) {
  for (size_t width = listing.detailed ? 3 : 1; at < lines.size(); at += width) {
    TEntry entry;
    entry.name = lines[at++];
    while (at < lines.size() && !TakeDetails(lines, at, listing.detailed, entry)) entry.name += "\n" + lines[at++];
    if (at == lines.size()) return false;
    listing.entries.push_back(std::move(entry));
  }
  return true;
}

bool FetchListing(const TAgent& agent, TListing& listing, TFailure& failure) {
  TReply reply;
  if (!AskListing(agent, listing, reply, failure)) return false;
  TReader reader(reply);
  listing.listed = reader.Text("folder");
  const long long count = reader.Number("number of entries");
  const long long width = reader.Number("number of columns");
  if (!reader.Finish(failure)) return false;
  const auto lines = static_cast<long long>(reply.lines.size()) - 3;
  if (count >= 0 && lines != count * width && !listing.detailed) {
    listing.detailed = true;  // some name holds a line break
    return FetchListing(agent, listing, failure);
  }
  listing.entries.clear();
  const bool decoded = width == (listing.detailed ? 4 : 2) && DecodeEntries(reply.lines, 3, listing);
  if (decoded && static_cast<long long>(listing.entries.size()) == count) return true;
  return Fail(failure, TKind::kUndecodable, "the reply does not hold the entries that it announces");
}

// Agents list what would hold a folder that is not there, and give an empty list, without even "..", of one that
// they cannot open.
bool CheckListed(const TListing& listing, TFailure& failure) {
  const std::string& folder = listing.folder;
  if (!folder.empty() && listing.listed != folder && listing.listed != folder + "/")
    return Fail(failure, TKind::kAgent, "'" + folder + "' is no folder there",
                "the agent listed '" + listing.listed + "' instead, which was not asked for");
  if (listing.entries.empty() && listing.mask.empty())
    return Fail(failure, TKind::kAgent, "'" + listing.listed + "' cannot be listed",
                "it is not there, or the agent's user may not read it");
  return true;
}

// Folders first, then by name; the agent lists them as the folder happens to hold them.
void SortEntries(std::vector<TEntry>& entries) {
  std::stable_sort(entries.begin(), entries.end(), [](const TEntry& a, const TEntry& b) {
    const bool folderA = a.bits & AttrDirectory, folderB = b.bits & AttrDirectory;
    return folderA != folderB ? folderA : a.name < b.name;
  });
}

void RunLs(TContext& context, const TArgs& args, TOutcome& outcome) {
  TListing listing;
  const bool detailed = args.Has("--long");
  listing.detailed = detailed;
  listing.all = args.Has("--all");
  SplitMask(args.Text("DIR", "/"), listing.folder, listing.mask);
  if (!FetchListing(*context.agent, listing, outcome.failure) || !CheckListed(listing, outcome.failure)) return;
  SortEntries(listing.entries);
  TTable table{"entries", ColumnsOf(detailed), {}};
  for (const TEntry& entry : listing.entries)
    if (entry.name != ".." || listing.all) table.rows.push_back(RowOf(entry, detailed));
  if (context.view.format == TFormat::kJson) outcome.result.Add("folder", "folder", listing.listed);
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
