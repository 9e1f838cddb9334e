// The state of a followed log in a file of its own, which is replaced whole.
#pragma once

#include <string>

#include "client/logwatch.h"
#include "client/target.h"
#include "core/closers.h"

class TLogStateFile {
 public:
  TLogStateFile() = default;
  TLogStateFile(const TLogStateFile&) = delete;
  TLogStateFile& operator=(const TLogStateFile&) = delete;
  ~TLogStateFile();  // removes the lock

  // Takes the file for this process alone; another tavctl on it makes this fail.
  bool Open(const std::string& path, const TTarget& target, TFailure& failure);
  // An absent file leaves the state empty.  One that was made for another log or agent is refused.
  bool Load(const std::string& pattern, TLogState& state, TFailure& failure);
  bool Save(const TLogState& state, TFailure& failure) const;

 private:
  bool Lock(TFailure& failure);

  std::string path, agent;
  TFd lock;
};

// The name used when none is given: in the user's state folder, one for each agent and log.  Makes the folder.
bool DefaultStatePath(const TTarget& target, const std::string& pattern, std::string& path, TFailure& failure);

// The form of the file.  No I/O.
std::string EncodeState(const TLogState& state, const std::string& agent);
bool DecodeState(const std::string& text, TLogState& state, std::string& agent);
