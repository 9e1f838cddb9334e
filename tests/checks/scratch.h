// A folder for a test's files, gone with the object; and a handler's reply under settings that allow these tests.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>

#include "config/settings.h"
#include "protocol/tavreply.h"

struct TScratch {
  ~TScratch() { std::filesystem::remove_all(path); }
  std::string Write(const std::string& file, const std::string& bytes) const {
    std::ofstream(path + file, std::ios::binary) << bytes;
    return path + file;
  }
  char name[32] = "/tmp/tav_checks_XXXXXX";
  const std::string path = std::string(mkdtemp(name)) + "/";
};

inline String Bytes(const std::string& s) {
  return String(s.data(), static_cast<int>(s.size()));
}

inline std::string ReplyOf(void (*handler)(const BVRequest&, TAVReply&), const std::string& parameters) {
  optmutex.Lock();
  TAVSettings.textlog = TAVSettings.comparefiles = TAVSettings.countfiles = 1;
  PublishSettings();
  optmutex.Unlock();
  TAVReply reply;
  handler(BVRequest(Bytes(parameters)), reply);
  return std::string(reply.Text().Data(), static_cast<size_t>(reply.Length()));
}
