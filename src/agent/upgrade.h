// Replacement of the agent's own program over a request's connection.
//
//   idle -> requested -> receiving (file open) -> digest checked -> script ready -> [session ends] -> process
//   replaced
//
// One upgrade at a time in the whole agent.  Every failure leads back to idle with the files deleted.
#pragma once

#include "core/closers.h"
#include "core/zostring.h"
#include "protocol/md5.h"

inline constexpr long long kSmallestProgram = 101;
inline constexpr long long kLargestProgram = 0x9FFFFF;

// One session's part in an upgrade.  Going away it gives up an upgrade that it still holds: a connection that ends
// early leaves neither a file nor a lock behind.
class UpgradeRec {
 public:
  UpgradeRec() = default;
  UpgradeRec(const UpgradeRec&) = delete;
  UpgradeRec& operator=(const UpgradeRec&) = delete;
  ~UpgradeRec();

  // False when an upgrade is in progress anywhere in the agent.
  bool RequestUpgrade(const String& key);
  void ClearanceUpgrade();

  bool active = false;
  long long expected = 0;  // bytes of the new program
  long long received = 0;  // bytes of it written so far
  TFd file;
  String path;  // empty until the transfer starts
  MD5Context digest;
  String sessionKey;  // opens the digest at the end
};

// Takes the next received bytes; called once without any when the command is accepted.  While the transfer runs it
// returns true with the record active; when it has ended the record is no longer active, and the result is true
// (the script is ready) or false with the reason in `error`.
bool DoUpgrading(UpgradeRec& record, const char* data, int length, String& error);

// How many bytes one receive call may take now without crossing the end of the file by more than one chunk: the
// digest has to lie in one chunk.
int NextUpgradeRead(const UpgradeRec& record, int room);
