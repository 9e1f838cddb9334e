// The tests of files and folders.
#include "tavctl/commands.h"

namespace {

const TArgRow kMacros = {"--macros", TArgKind::kFlag,
                         "put names in place of %newestfile%, %oldestfile%, %newestfolder%, %oldestfolder%"};
const TArgRow kRecurse = {"-r,--recurse", TArgKind::kFlag, "go into subfolders"};

void BuildPath(const TArgs& args, TParams& params) {
  params.Text(1, args.Text("PATH"));
}

void DecodeDisk(TReader& reply, TResult& result) {
  result.Add("total", "total", reply.Number("total"), TUnit::kBytes);
  result.Add("free", "free", reply.Number("free space"), TUnit::kBytes);
  result.Add("available", "available", reply.Number("available space"), TUnit::kBytes);
  result.Add("query_ms", "asked in", reply.Number("time"), TUnit::kMilliseconds);
}

void BuildFile(const TArgs& args, TParams& params) {
  params.Text(1, args.Text("PATH"));
  params.Flag(7, args.Has("--macros"));
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
  params.Text(1, args.Text("DIR"));
  params.Flag(2, args.Has("--recurse"));
  params.Flag(8, args.Has("--macros"));
}

void DecodeSize(TReader& reply, TResult& result) {
  result.Add("size", "size", reply.Number("size"), TUnit::kBytes);
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
  int mode = 0;
  long long limit = 0;
  for (const TCountMode& row : kCountModes) {
    if (!args.Has(row.option)) continue;
    if (mode != 0) return params.Refuse("only one condition can be counted at a time", "ask twice");
    mode = row.mode;
    limit = args.Number(row.option, 0);
  }
  params.Text(1, args.Text("DIR"));
  params.Text(2, args.Text("MASK", "*"));
  params.Flag(3, args.Has("--recurse"));
  params.Number(4, mode);
  params.Number(5, limit);
  params.Flag(11, args.Has("--macros"));
}

void DecodeCount(TReader& reply, TResult& result) {
  result.Add("count", "count", reply.Number("count"), TUnit::kCount);
}

void BuildCompare(const TArgs& args, TParams& params) {
  const bool any = args.Has("--times") || args.Has("--sizes") || args.Has("--contents");
  params.Number(1, 1);
  params.Text(2, args.Text("A"));
  params.Text(3, args.Text("B"));
  params.Flag(4, args.Has("--times"));
  params.Flag(5, args.Has("--sizes") || !any);
  params.Flag(6, args.Has("--contents") || !any);
  params.Flag(12, args.Has("--macros"));
  params.Flag(13, args.Has("--macros"));
}

void DecodeCompare(TReader& reply, TResult& result) {
  result.Add("equal", "equal", reply.Flag("result"), TUnit::kYesNo);
}

void BuildContains(const TArgs& args, TParams& params) {
  if (args.Has("--text") == args.Has("--file")) return params.Refuse("give either --text or --file", "");
  params.Text(2, args.Text("FILE"));
  if (args.Has("--file")) {
    params.Number(1, 2);
    params.Text(3, args.Text("--file"));
    params.Flag(9, args.Has("--macros"));
    return;
  }
  params.Number(1, 3);
  params.Text(3, args.Text("--text"));
  params.Flag(4, !args.Has("--ignore-case"));
  params.Flag(5, args.Has("--word"));
  params.Flag(11, args.Has("--macros"));
}

void DecodeContains(TReader& reply, TResult& result) {
  result.Add("found", "found", reply.Flag("result"), TUnit::kYesNo);
}

}  // namespace

std::vector<TCommandRow> FileCommands() {
  const TArgKind text = TArgKind::kText, number = TArgKind::kNumber, flag = TArgKind::kFlag;
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
              {"--older-than", number, "only files modified more than so many minutes ago"},
              {"--newer-than", number, "only files modified less than so many minutes ago"},
              {"--bigger-than", number, "only files of more bytes"},
              {"--smaller-than", number, "only files of fewer bytes"},
              {"--folders", flag, "subfolders instead of files"},
              kMacros},
             BuildCount, DecodeCount),
      Simple("test compare", "Whether two files are equal", "TEST-FileCompare",
             {{"A", text, "one file"},
              {"B", text, "the other"},
              {"--times", flag, "compare modification times"},
              {"--sizes", flag, "compare sizes (so it is without any of the three)"},
              {"--contents", flag, "compare contents up to the shorter one's end (likewise)"},
              kMacros},
             BuildCompare, DecodeCompare),
      Simple("test contains", "Whether a file holds a text or another file", "TEST-FileCompare",
             {{"FILE", text, "the file to search"},
              {"--text", text, "look for this text"},
              {"--file", text, "look for the contents of this file on the host, up to 8 MiB"},
              {"-i,--ignore-case", flag, "letter case does not count"},
              {"-w,--word", flag, "whole words only"},
              kMacros},
             BuildContains, DecodeContains),
  };
}
