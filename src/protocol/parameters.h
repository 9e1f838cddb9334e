// Where the parameters of each command stand: the number of the line behind the command's own.  The handlers read by
// these names and the client writes by them.
//
// Positions that no name is given to are not looked at: the servers send values for other platforms' agents there.
#pragma once

namespace UncParams {  // "TEST-UNC"
enum { kPath = 1 };
}

namespace FolderSizeParams {  // "TEST-FolderSize"
enum { kFolder = 1, kRecursive = 2, kMacros = 8 };
}

namespace FileExistsParams {  // "TEST-FileExists"
enum { kFile = 1, kMacros = 7 };
}

namespace FileCrcParams {  // "TEST-FileCRC"
enum { kFile = 1 };
}

namespace FileCompareParams {  // "TEST-FileCompare"; what follows the files depends on the mode
enum {
  kMode = 1,
  kFirst = 2,

  kSecond = 3,  // mode 1, two files
  kTimes = 4,
  kSizes = 5,
  kContents = 6,
  kFirstMacros = 12,  // mode 4 as well
  kSecondMacros = 13,

  kPatternFile = 3,  // mode 2, one file in another
  kPatternMacros = 9,

  kText = 3,  // mode 3, a text in a file
  kCaseSensitive = 4,
  kWholeWord = 5,
  kTextMacros = 11,
};
}

namespace CountFilesParams {  // "TEST-CountFiles"
enum { kFolder = 1, kMask = 2, kSubfolders = 3, kMode = 4, kLimit = 5, kMacros = 11 };
}

namespace ProcessParams {  // "TEST-Process"
enum { kName = 2 };
}

namespace ExternalParams {  // "TEST-ExternalPrg"
enum { kCommandLine = 1, kTimeoutMs = 4 };
}

namespace ShellScriptParams {  // "TEST-ShellScript"
enum { kCommandLine = 1, kScript = 2, kArguments = 3, kTimeoutS = 4, kLines = 5 };
}

namespace TcpParams {  // "TEST-TCP"
enum { kHost = 1, kPort, kTimeoutMs, kData, kReceiveSize };
}

namespace UdpParams {  // "TEST-UDP"
enum { kHost = 1, kPort, kTimeoutMs, kAttempts, kData, kReceiveSize };
}

namespace TextLogParams {  // "TEST-TextLog2"
enum { kFile = 1, kPosition, kKnownSize, kKnownAge, kScanAll, kFirstFilter = 6, kUseSecond = 10, kSecondFilter = 11 };
// A filter takes four lines.
enum { kExpression = 0, kIsExpression, kCaseSensitive, kWholeWord };
// The switch of the macros stands one line behind a gap that follows the last filter sent.
constexpr int Macros(int useSecond) {
  return useSecond ? 20 : 16;
}
}  // namespace TextLogParams

namespace ExternalCmdParams {  // "ACT-ExternalCmd"; the third is a number that is not used
enum { kCommandLine = 1, kFolder, kUnused, kTimeoutMs };
}

namespace SendParams {  // "ACT-TCPUDPsend"
enum { kHost = 1, kPort, kKind, kFirst, kDelayS, kSecond };
}

namespace SyslogParams {  // "ACT-Syslog"
enum { kServer = 1, kPort, kFacility, kSeverity, kMessage };
}

namespace FilesListParams {  // "GetFilesList"
enum { kFolder = 1, kMask, kFolders, kFiles, kHidden, kSystem, kSizes, kStatusTimes, kChangeTimes };
}

namespace UpgradeParams {  // "UpgradeCode"
enum { kSize = 1 };
}
