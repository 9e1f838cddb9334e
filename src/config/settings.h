// The agent's settings: the object, its file, and how they reach the sessions.
//
// There is one master copy, TAVSettings, that only the holder of `optmutex` touches.  Sessions never read it: they
// read the published copy, which never changes once published.  A load or a change is made aside or under the lock
// and then published whole, so nobody sees half of one, and what a reader holds lives as long as he holds it.
#pragma once

#include <memory>

#include "core/mutex.h"
#include "core/zostring.h"
#include "protocol/passwordkeys.h"

extern TMutex optmutex;

inline constexpr int kDefaultTimeout = 4000;  // milliseconds, in place of 0

class TTAVSettings {
 public:
  TTAVSettings();

  // The global object's load and save, whole and one at a time: they take `optmutex`, work and publish.  A file
  // that cannot be opened leaves the settings in force as they are; one that was read and fails a check is in force
  // all the same.  A save waits for the disk.  Any thread.
  static int LoadOptions(String& message) EXCLUDES(optmutex);
  static int SaveOptions(String& message) EXCLUDES(optmutex);
  // Puts `port` in the place of one that cannot be opened, unless another was set in the meantime.  Never waits:
  // false when a load or a save is under way, or memory is short; to be tried again then.
  static bool ReplacePort(int unusable, int port) EXCLUDES(optmutex);

  // Reads `cfgfile` over the reset values.  Returns 1 when the settings are usable; else 0, with every problem in
  // `message` and what was read in the object.  The message may hold a warning on success too.
  int LoadOptions_(String& message);
  // Rewrites the file in place, keeping comments, order and unknown lines.  Returns 1, or 0 with the reason; the
  // file holds its old content then.
  int SaveOptions_(String& message);
  // Derives the address filter and the paths from what was read, and names the temporary directory to the process
  // and the children that it starts from then on.
  void PutRight(String& message);
  // Null-terminates every text, for readers that share the object (settings_keys.cpp: the table knows the texts).
  void TerminateTexts();

  // From the command line.
  int interactive = 0;
  int verbose = 0;
  int verbosedetail = 0;
  char cfgfile[512] = "";

  String tmpdir;
  String tavpath;
  String pidfile;
  String host;  // empty: every interface
  int port = 0;
  int timeout = 0;          // milliseconds
  int delayforscripts = 0;  // microseconds
  String password;
  String comment;
  String verboselogfile;
  int logsuccess = 0;
  String oklogfile;
  int filteractive = 0;
  int logfails = 0;
  String badlogfile;
  String filterlist;  // addresses, CR LF between them
  int allowupdates = 0;
  String updateaddr;
  String filtermarks;  // one character an address, '1': in force
  int allowmanage = 0;
  String manageaddr;
  String activefilter;  // CR LF, then each address in force and CR LF

  int unc = 0;
  int freespace = 0;
  int foldersize = 0;
  int countfiles = 0;
  int fileexists = 0;
  int filecrc = 0;
  int comparefiles = 0;
  int process = 0;
  int service = 0;
  int ntlog = 0;
  int cpuusage = 0;
  int perfcounter = 0;
  int snmp = 0;
  int script = 0;
  int external = 0;
  int ping = 0;
  int tcp = 0;
  int udp = 0;
  int textlog = 0;
  int spareflag = 0;  // reset with the others, read by nobody
  int shellscript = 0;
  int executeaction = 0;
  int tcpudpaction = 0;
  int syslogaction = 0;

  String cpuusagescript;
  String proclistscript;
  String proccntscript;

 private:
  // False when there is no file to read or it cannot be read to its end.
  bool ReadFile(String& message);
};

extern TTAVSettings TAVSettings GUARDED_BY(optmutex);

// The published settings.  Never null; hold the pointer for as long as several fields must agree.
using TSettingsPtr = std::shared_ptr<const TTAVSettings>;
TSettingsPtr SettingsInForce();
// From now on `tell` is called after every publication, by whoever publishes, who holds `optmutex`.
void WhenSettingsChange(void (*tell)());
// The password keys of the published settings; prepared once per password, by who asks first.  The cipher must be
// set up by then (protocol/twofish.h).
using TPasswordKeysPtr = std::shared_ptr<const TPasswordKeys>;
TPasswordKeysPtr PasswordInForce();

// Makes the master copy the settings in force.
void PublishSettings() REQUIRES(optmutex);
// Makes `next` the master copy and the settings in force; when memory is short it throws and changes neither.
void PublishSettings(TTAVSettings next) REQUIRES(optmutex);
