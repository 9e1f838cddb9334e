// A handler's reply under settings that allow every test.
#pragma once

#include "config/settings.h"
#include "protocol/tavreply.h"
#include "tests/scratch.h"

inline std::string ReplyOf(void (*handler)(const BVRequest&, TAVReply&), const std::string& parameters) {
  {
    TLock lock(optmutex);
    TAVSettings.textlog = TAVSettings.comparefiles = TAVSettings.countfiles = 1;
    PublishSettings();
  }
  TAVReply reply;
  handler(BVRequest(Bytes(parameters)), reply);
  return Std(reply.Text());
}
