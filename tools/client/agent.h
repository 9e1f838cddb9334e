// One agent as the commands see it: ask, get a reply.
//
// Read-only once made: any number of threads may ask through one object.
#pragma once

#include <memory>
#include <string>

#include "client/reply.h"
#include "client/request.h"
#include "client/target.h"
#include "client/wire.h"
#include "protocol/cipher.h"
#include "protocol/passwordkeys.h"

// A request made ready: the packet and the key that opens its reply.
struct TPacket {
  String bytes;
  std::shared_ptr<const TCipherKey> key;
};

// Frames and encrypts a request text under a fresh random session key.
bool MakePacket(const TPasswordKeys& password, const std::string& text, TPacket& packet, TFailure& failure);
// Decrypts a reply packet, length field included.
std::string OpenPacket(const TPacket& request, const std::string& packet);

// What went over the wire, for those who want to see it.
struct TTrace {
  std::string request, reply;              // texts
  std::string requestPacket, replyPacket;  // bytes
};

class TAgent {
 public:
  TTarget target;
  std::shared_ptr<const TPasswordKeys> password;
  long long timeoutMs = 10000;
  long long deadline = 0;  // when all must be over, as MonotonicMs() counts; 0: never

  // Sends one request on a connection of its own.  `workMs` is how long the agent may work on it beyond the
  // time-out.  A reply with any code is a success here; `failure` is for what prevents a reply.
  bool Ask(const std::string& wire, const TParams& params, TReply& reply, TFailure& failure, long long workMs = 0,
           TTrace* trace = nullptr) const;
};

// Asks the agent and sorts the answer: false, with `failure` set, unless it is "200".
bool AskAgent(const TAgent& agent, const std::string& wire, const TParams& params, TReply& reply, TFailure& failure,
              long long workMs = 0);
