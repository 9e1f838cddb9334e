#include "client/agent.h"

#include <errno.h>
#include <string.h>
#include <sys/random.h>

#include "client/text.h"
#include "core/clock.h"
#include "protocol/tav_const.h"

namespace {

constexpr int kSessionKeySize = 32;

// getrandom never gives fewer bytes than asked for at this size, but a signal may come first.
bool RandomKey(String& key, TFailure& failure) {
  char bytes[kSessionKeySize];
  ssize_t got = 0;
  do got = getrandom(bytes, sizeof bytes, 0);
  while (got < 0 && errno == EINTR);
  if (got != kSessionKeySize) return Fail(failure, TKind::kInternal, std::string("getrandom: ") + strerror(errno));
  key.CopyData(bytes, kSessionKeySize);
  explicit_bzero(bytes, sizeof bytes);
  return true;
}

void AddField(String& body, const String& field, int digits) {
  body += EncodeLength(field, digits);
  body += field;
}

}  // namespace

bool MakePacket(const TPasswordKeys& password, const std::string& text, TPacket& packet, TFailure& failure) {
  String sessionKey;
  if (!RandomKey(sessionKey, failure)) return false;
  packet.key = std::make_shared<const TCipherKey>(sessionKey);

  String body(kSignature, SIZELEN_AUTH);
  AddField(body, password.proof, SIZELEN_PSWD);
  AddField(body, EncodeData(sessionKey, password.cipher, 0), SIZELEN_KEY);
  AddField(body, EncodeData(ToString(text), *packet.key, 0), SIZELEN_REQUEST);

  packet.bytes = EncodeLength(body, SIZELEN_PACKET);
  packet.bytes += body;
  return true;
}

std::string OpenPacket(const TPacket& request, const std::string& packet) {
  std::string text(packet.size() - SIZELEN_PACKET, '\0');
  request.key->Decrypt(packet.data() + SIZELEN_PACKET, text.data(), static_cast<int>(text.size()));
  return text;
}

bool TAgent::Ask(const std::string& wire, const TParams& params, TReply& reply, TFailure& failure, long long workMs,
                 TTrace* trace) const {
  if (!params.Finish(failure)) return false;
  const long long start = MonotonicUs();
  TPacket packet;
  const std::string text = params.RequestText(wire);
  if (!MakePacket(*password, text, packet, failure)) return false;
  if (trace != nullptr) {
    trace->request = text;
    trace->requestPacket = Bytes(packet.bytes);
  }

  TLink link(deadline);
  std::string answer;
  if (!link.Connect(target, timeoutMs, failure)) return false;
  if (!link.Send(packet.bytes.Data(), static_cast<size_t>(packet.bytes.Length()), timeoutMs, failure)) return false;
  if (!link.ReadPacket(answer, timeoutMs + workMs, timeoutMs, failure)) return false;

  std::string opened = OpenPacket(packet, answer);
  const bool parsed = ParseReply(opened, reply, failure);
  reply.elapsedMs = static_cast<double>(MonotonicUs() - start) / 1000;
  if (trace != nullptr) {
    trace->reply = opened;
    trace->replyPacket = answer;
  }
  explicit_bzero(opened.data(), opened.size());
  return parsed;
}

bool AskAgent(const TAgent& agent, const std::string& wire, const TParams& params, TReply& reply, TFailure& failure,
              long long workMs) {
  if (!agent.Ask(wire, params, reply, failure, workMs)) return false;
  if (reply.Ok()) return true;
  failure = ExplainAnswer(wire, reply.code, reply.lines);
  return false;
}
