// Where the parameters of each command stand: the number of the line behind the command's own.  The handlers read
// by these names, and the client writes by them.
//
// Lines that have no name are not looked at: the servers send there what other platforms' agents read.
#pragma once

namespace params {

namespace path {  // "TEST-UNC", "TEST-FileCRC"
enum { kPath = 1 };
}

namespace folder_size {  // "TEST-FolderSize"
enum { kFolder = 1, kRecursive = 2, kMacros = 8 };
}

namespace file_exists {  // "TEST-FileExists"
enum { kFile = 1, kMacros = 7 };
}

namespace file_compare {  // "TEST-FileCompare"; what stands behind the first file depends on the mode
enum { kMode = 1, kFirst = 2 };

namespace two_files {  // mode 1; mode 4 has the macros of its first file there as well
enum { kSecond = 3, kTimes, kSizes, kContents, kFirstMacros = 12, kSecondMacros };
}
namespace file_in_file {  // mode 2
enum { kSecond = 3, kMacros = 9 };
}
namespace text_in_file {  // mode 3
enum { kText = 3, kCaseSensitive, kWholeWord, kMacros = 11 };
}
}  // namespace file_compare

namespace count_files {  // "TEST-CountFiles"
enum { kFolder = 1, kMask, kSubfolders, kMode, kLimit, kMacros = 11 };
}

namespace process {  // "TEST-Process"
enum { kName = 2 };
}

namespace external {  // "TEST-ExternalPrg"
enum { kCommandLine = 1, kTimeoutMs = 4 };
}

namespace shell_script {  // "TEST-ShellScript"
enum { kCommandLine = 1, kScript, kArguments, kTimeoutS, kLines };
}

namespace tcp {  // "TEST-TCP"
enum { kHost = 1, kPort, kTimeoutMs, kData, kReceiveSize };
}

namespace udp {  // "TEST-UDP"
enum { kHost = 1, kPort, kTimeoutMs, kAttempts, kData, kReceiveSize };
}

namespace text_log {  // "TEST-TextLog2"
enum { kFile = 1, kPosition, kKnownSize, kKnownAge, kScanAll, kFirstFilter, kUseSecond = 10, kSecondFilter };
// The lines of a filter, counted from its first.
enum { kExpression = 0, kIsExpression, kCaseSensitive, kWholeWord };
// The last line comes behind those of a second filter, should there be one.
enum { kMacros = 16, kMacrosBehindSecond = 20 };
}  // namespace text_log

namespace external_cmd {                                  // "ACT-ExternalCmd"
enum { kCommandLine = 1, kFolder, kUnused, kTimeoutMs };  // the unused one is a number all the same
}

namespace send {  // "ACT-TCPUDPsend"
enum { kHost = 1, kPort, kKind, kFirst, kDelayS, kSecond };
}

namespace syslog {  // "ACT-Syslog"
enum { kServer = 1, kPort, kFacility, kSeverity, kMessage };
}

namespace files_list {  // "GetFilesList"
enum { kFolder = 1, kMask, kFolders, kFiles, kHidden, kSystem, kSizes, kStatusTimes, kChangeTimes };
}

namespace upgrade {  // "UpgradeCode"
enum { kSize = 1 };
}

}  // namespace params
