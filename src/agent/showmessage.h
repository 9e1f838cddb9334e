// The agent's one way to speak: a line on the console in interactive mode, and lines in the log files.
//
// Any thread; lines of different sessions never interleave.  Before the main loop the start-up texts are printed
// directly.
#pragma once

#include <netinet/in.h>

#include "core/closers.h"
#include "core/zostring.h"

enum MsgType {
  mtSuccess = 0,  // console, oklogfile when logsuccess is on
  mtFailure = 1,  // console, badlogfile when logfails is on
  mtDebug = 2,    // only in debugging mode: console
  mtInfo = 3,     // console
};                // all of them: verboselogfile in verbose mode

// `peer` 0 means the agent itself.  With `formatted` the text is a printf format for the further arguments, without
// it is taken as it stands.  At most 512 bytes of a line are kept, its line end among them.  A message that nobody
// wants is neither formatted nor waits for a lock.  Never throws.
void showmessage(const char* format, in_addr peer, MsgType type, int formatted, ...)
    __attribute__((format(printf, 1, 5)));

// Opens a log for appending, made when it is absent.  Written are regular files and character devices alone.  A
// link to a log elsewhere is followed, but not where others may write into its folder, who could lead the lines
// into any file; there a file with a second name is refused as well.  Closed when it cannot be opened.  Never
// blocks; safe in signal handlers.
TFd OpenLog(const char* path);

// Appends the line to the file, opened and closed for it.  A bare name lies beside the configuration file.  An
// empty path or a file that cannot be opened is passed over in silence.
void writelog(const String& path, const char* line);

// The file a log setting names: a bare name lies beside the configuration file.
String LogPath(const String& path, const char* cfgfile);

// A peer's text made fit for a log line: control bytes become "?", so that it cannot forge lines.
String PeerText(const String& text);

// Hands the lower layers' diagnostic lines to showmessage.
void RouteDiagnostics();

inline constexpr in_addr kNoPeer = {0};
inline constexpr int kLogLineBytes = 512;
inline constexpr unsigned kLogFileMode = 0640;
