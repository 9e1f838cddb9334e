// Replacement of the agent's own program over a request's connection.
//
//   idle -> requested -> receiving -> digest checked -> script ready -> [session ends] -> process replaced
//
// One upgrade at a time in the whole agent, from the request until the process is replaced or it is known that it
// will not be: the script that is ready copies a file of a fixed name, which a second transfer would empty.  Every
// failure leads back to idle with the files deleted.
#pragma once

#include <memory>

#include "core/zostring.h"

class TUpgradeTransfer;

// One session's part in an upgrade: a transfer that is fed with bytes and says how many it wants next.  Going away
// it gives up what is not complete: a connection that ends early leaves neither a file nor a lock behind.
class UpgradeRec {
 public:
  UpgradeRec();
  UpgradeRec(const UpgradeRec&) = delete;
  UpgradeRec& operator=(const UpgradeRec&) = delete;
  ~UpgradeRec();

  // Begins an upgrade; `key` opens the digest at the end.  False when one is in progress anywhere in the agent.
  bool RequestUpgrade(const String& key);
  // Takes the size of the new program in bytes.  False when no program can be so small or so large; the transfer
  // goes on all the same.
  bool Announce(long long bytes);
  void ClearanceUpgrade();

  // True while bytes are awaited.
  bool Active() const { return transfer != nullptr; }
  // How many bytes one receive call may take now without crossing the end of the file by more than one chunk: the
  // digest has to lie in one chunk.  REQUIRES: Active().
  int NextRead(int room) const;
  // True when the process is to be handed over once this session has ended.
  bool Ready() const { return completed; }

 private:
  friend bool DoUpgrading(UpgradeRec& record, const char* data, int length, String& error);
  void MakeReady();

  std::unique_ptr<TUpgradeTransfer> transfer;
  bool completed = false;
};

// Takes the next received bytes; called once without any when the command is accepted.  While the transfer runs it
// returns true with the record active; when it has ended the record is no longer active, and the result is true
// (the script is ready) or false with the reason in `error`.  A script can be ready with an `error` as well.
bool DoUpgrading(UpgradeRec& record, const char* data, int length, String& error);

// The upgrade that is ready, taken by the main thread to hand over to.  Should the process outlive the object, the
// upgrade is given up.
class TReadyUpgrade {
 public:
  TReadyUpgrade();
  TReadyUpgrade(const TReadyUpgrade&) = delete;
  TReadyUpgrade& operator=(const TReadyUpgrade&) = delete;
  ~TReadyUpgrade();

  // False when there is none, or the file that it installs is not the received one any more: the script would
  // remove the agent and have nothing right to put in its place.
  bool HasProgram();
  // The script to run in this process's place, "" when it is not ours any more, and the file that it installs. Both
  // texts last as long as the object.  REQUIRES: HasProgram().
  const char* Script();
  const char* Program();

 private:
  std::unique_ptr<TUpgradeTransfer> upgrade;
};
