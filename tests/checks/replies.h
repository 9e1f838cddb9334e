// A handler's reply; who may ask for it is the dispatch's affair.
#pragma once

#include "protocol/tavreply.h"
#include "tests/scratch.h"

using THandler = void (*)(const BVRequest&, TAVReply&);

inline std::string ReplyOf(THandler handler, const std::string& parameters) {
  TAVReply reply;
  handler(BVRequest(Bytes(parameters)), reply);
  return Std(reply.Text());
}
