// The tests of files and folders.
#include <time.h>

#include "client/text.h"
#include "protocol/parameters.h"
#include "tavctl/commands.h"

namespace {

constexpr long long kSearchMs = 60000;  // for a file that takes the agent a while

const TArgRow kMacros = {"--macros", TArgKind::kFlag,
                         "put names in place of %newestfile%, %oldestfile%, %newestfolder%, %oldestfolder%"};
const TArgRow kRecurse = {"-r,--recurse", TArgKind::kFlag, "go into subfolders"};

void BuildPath(const TArgs& args, TParams& params) {
  params.Text(params::path::kPath, args.Text("PATH"));
}

void DecodeDisk(TReader& reply, TResult& result) {
  result.Add("total", "total", reply.Number("total"), TUnit::kBytes);
  result.Add("free", "free", reply.Number("free space"), TUnit::kBytes);
  result.Add("available", "available", reply.Number("available space"), TUnit::kBytes);
  result.Add("query_ms", "asked in", reply.Number("time"), TUnit::kMilliseconds);
}

void BuildFile(const TArgs& args, TParams& params) {
  namespace at = params::file_exists;
  params.Text(at::kFile, args.Text("PATH"));
  params.Flag(at::kMacros, args.Has("--macros"));
}

// Seconds since 1970 of "yyyy-mm-dd hh:mm:ss", taken for universal time.
long long SecondsOf(const std::string& iso) {
  tm when{};
  if (strptime(iso.c_str(), "%Y-%m-%d %H:%M:%S", &when) == nullptr) return 0;
  return timegm(&when);
}

// The agent counts whole minutes, and those of a time in the future up to the minute as none.  Its zone need not be
// ours, but zones differ by whole quarters of an hour: within a minute of now the seconds tell.
std::string AgeText(long long minutes, const std::string& modified, long long now) {
  constexpr long long kQuarter = 900;
  if (minutes < 0) return "in the future by " + DurationText(-60 * minutes);
  if (minutes > 0) return DurationText(60 * minutes);
  long long seconds = (now - SecondsOf(modified)) % kQuarter;
  if (seconds > kQuarter / 2) seconds -= kQuarter;
  if (seconds < -kQuarter / 2) seconds += kQuarter;
  if (seconds <= -60 || seconds >= 60) return "less than a minute";  // our clocks differ
  return seconds < 0 ? "in the future by " + DurationText(-seconds) : DurationText(seconds);
}

void DecodeFile(TReader& reply, TResult& result) {
  const long long size = reply.Number("size");
  const std::string changed = reply.When("change time");
  const std::string modified = reply.When("modification time");
  const std::string path = reply.Text("file name");
  reply.Text("unit");
  const long long age = reply.Number("age");
  result.Add("path", "file", path);
  result.Add("size", "size", size, TUnit::kBytes);
  result.Add("modified", "modified", modified);
  result.Add("changed", "status changed", changed);
  result.Add("age_minutes", "age", age, TUnit::kMinutes);
  result.fields.back().shown = AgeText(age, modified, time(nullptr));
}

// The agent's register lacks the final inversion of the usual CRC-32; both are given, so that the sum can be
// compared with what other tools print.
void DecodeCrc(TReader& reply, TResult& result) {
  const long long crc = reply.Number("checksum");
  static const char* const kDigits = "0123456789abcdef";
  const unsigned usual = ~static_cast<unsigned>(crc);
  std::string hex;
  for (int shift = 28; shift >= 0; shift -= 4) hex += kDigits[usual >> shift & 15];
  result.Add("crc", "agent's sum", crc, TUnit::kHex32);
  result.Add("crc32", "usual CRC-32", hex);
}

void BuildSize(const TArgs& args, TParams& params) {
  namespace at = params::folder_size;
  params.Text(at::kFolder, args.Text("DIR"));
  params.Flag(at::kRecursive, args.Has("--recurse"));
  params.Flag(at::kMacros, args.Has("--macros"));
}

void DecodeSize(TReader& reply, TResult& result) {
  const long long size = reply.Number("size");
  result.Add("size", "size", size, TUnit::kBytes);
  if (size == 0) result.note = "no bytes: the folder holds no such files, or is not there itself";
}

struct TCountMode {
  const char* option;
  int mode;
};

// Their numbers on the wire; without any, all files count.
constexpr TCountMode kCountModes[] = {
    {"--older-than", 1}, {"--newer-than", 2}, {"--bigger-than", 3}, {"--smaller-than", 4}, {"--folders", 5},
};

void BuildCount(const TArgs& args, TParams& params) {
  namespace at = params::count_files;
  int mode = 0;
  long long limit = 0;
  for (const TCountMode& row : kCountModes) {
    if (!args.Has(row.option)) continue;
    if (mode != 0) return params.Refuse("only one condition can be counted at a time", "ask twice");
    mode = row.mode;
    limit = args.Number(row.option, 0);
  }
  params.Text(at::kFolder, args.Text("DIR"));
  params.Text(at::kMask, args.Text("MASK", "*"));
  params.Flag(at::kSubfolders, args.Has("--recurse"));
  params.Number(at::kMode, mode);
  params.Number(at::kLimit, limit);
  params.Flag(at::kMacros, args.Has("--macros"));
}

void DecodeCount(TReader& reply, TResult& result) {
  result.Add("count", "count", reply.Number("count"), TUnit::kCount);
}

void BuildCompare(const TArgs& args, TParams& params) {
  namespace at = params::file_compare;
  const bool any = args.Has("--times") || args.Has("--sizes") || args.Has("--contents");
  params.Number(at::kMode, 1);
  params.Text(at::kFirst, args.Text("A"));
  params.Text(at::two_files::kSecond, args.Text("B"));
  params.Flag(at::two_files::kTimes, args.Has("--times"));
  params.Flag(at::two_files::kSizes, args.Has("--sizes") || !any);
  params.Flag(at::two_files::kContents, args.Has("--contents") || !any);
  params.Flag(at::two_files::kFirstMacros, args.Has("--macros"));
  params.Flag(at::two_files::kSecondMacros, args.Has("--macros"));
}

void DecodeCompare(TReader& reply, TResult& result) {
  result.Add("equal", "equal", reply.Flag("result"), TUnit::kYesNo);
}

void BuildContains(const TArgs& args, TParams& params) {
  namespace at = params::file_compare;
  if (args.Has("--text") == args.Has("--file")) return params.Refuse("give either --text or --file", "");
  params.Text(at::kFirst, args.Text("FILE"));
  if (args.Has("--file")) {
    params.Number(at::kMode, 2);
    params.Text(at::file_in_file::kSecond, args.Text("--file"));
    params.Flag(at::file_in_file::kMacros, args.Has("--macros"));
    return;
  }
  params.Number(at::kMode, 3);
  params.Text(at::text_in_file::kText, args.Text("--text"));
  params.Flag(at::text_in_file::kCaseSensitive, !args.Has("--ignore-case"));
  params.Flag(at::text_in_file::kWholeWord, args.Has("--word"));
  params.Flag(at::text_in_file::kMacros, args.Has("--macros"));
}

// A file that can be read is equal to itself.
bool CanRead(const TAgent& agent, const std::string& file, bool macros) {
  namespace at = params::file_compare;
  TParams params;
  params.Number(at::kMode, 1);
  params.Text(at::kFirst, file);
  params.Text(at::two_files::kSecond, file);
  params.Flag(at::two_files::kContents, true);
  params.Flag(at::two_files::kFirstMacros, macros);
  params.Flag(at::two_files::kSecondMacros, macros);
  TReply reply;
  TFailure failure;
  return AskAgent(agent, "TEST-FileCompare", params, reply, failure, kSearchMs);
}

// Agents say "I/O Error" of what is not found, too; so it is looked whether the files can be read.
void RunContains(TContext& context, const TArgs& args, TOutcome& outcome) {
  TParams params;
  BuildContains(args, params);
  TReply reply;
  if (AskAgent(*context.agent, "TEST-FileCompare", params, reply, outcome.failure, kSearchMs)) {
    TReader reader(reply);
    outcome.result.Add("found", "found", reader.Flag("result"), TUnit::kYesNo);
    (void)reader.Finish(outcome.failure);
    return;
  }
  if (outcome.failure.text != "I/O Error") return;
  const bool readable = CanRead(*context.agent, args.Text("FILE"), args.Has("--macros")) &&
                        (!args.Has("--file") || CanRead(*context.agent, args.Text("--file"), false));
  if (!readable) return;
  outcome.failure = TFailure();
  outcome.result.Add("found", "found", false, TUnit::kYesNo);
}

// 0 for yes.
int ExitOfAnswer(const TResult& result) {
  return std::get<bool>(result.fields[0].value) ? 0 : 1;
}

}  // namespace

std::vector<TCommandRow> FileCommands() {
  const TArgKind text = TArgKind::kText, flag = TArgKind::kFlag;
  return {
      Simple("test disk", "Space on the file system that holds a path", "TEST-UNC",
             {{"PATH", text, "a path on it"}}, BuildPath, DecodeDisk),
      Simple("test file", "Size, times and age of a file", "TEST-FileExists",
             {{"PATH", text, "the file, or a wildcard whose first match is taken"}, kMacros}, BuildFile,
             DecodeFile),
      Simple("test crc", "Checksum of a file", "TEST-FileCRC", {{"PATH", text, "the file"}}, BuildPath, DecodeCrc),
      Simple("test size", "Size of a folder's files", "TEST-FolderSize",
             {{"DIR", text, "the folder, with a wildcard behind it for some of its files"}, kRecurse, kMacros},
             BuildSize, DecodeSize),
      Simple("test count", "Number of files or folders", "TEST-CountFiles",
             {{"DIR", text, "the folder"},
              {"[MASK]", text, "wildcard for the names (*)"},
              kRecurse,
              {"--older-than", TArgKind::kMinutes, "only files modified more than so many minutes ago"},
              {"--newer-than", TArgKind::kMinutes, "only files modified less than so many minutes ago"},
              {"--bigger-than", TArgKind::kSize, "only files of more bytes"},
              {"--smaller-than", TArgKind::kSize, "only files of fewer bytes"},
              {"--folders", flag, "subfolders instead of files"},
              kMacros},
             BuildCount, DecodeCount),
      Simple("test compare", "Whether two files are equal", "TEST-FileCompare",
             {{"A", text, "one file"},
              {"B", text, "the other"},
              {"--times", flag, "compare modification times"},
              {"--sizes", flag, "compare sizes (so it is without any of the three)"},
              {"--contents", flag, "compare contents up to the shorter one's end (likewise)"},
              kExitStatus,
              kMacros},
             BuildCompare, DecodeCompare)
          .Exits(ExitOfAnswer),
      Custom("test contains", "Whether a file holds a text or another file",
             {{"FILE", text, "the file to search"},
              {"--text", text, "look for this text"},
              {"--file", text, "look for the contents of this file on the host, up to 8 MiB"},
              {"-i,--ignore-case", flag, "letter case does not count"},
              {"-w,--word", flag, "whole words only"},
              kExitStatus,
              kMacros},
             RunContains)
          .Exits(ExitOfAnswer),
  };
}
