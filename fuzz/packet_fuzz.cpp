// A packet is judged alike whole and in pieces, by its own bytes alone; an accepted one holds what was sent.
//
//   input := password piece trailing { position flip } LF key LF text      single characters, counted from '0'
#include "fuzz/law.h"
#include "protocol/bvrequest.h"
#include "protocol/tav_const.h"

static std::string Field(const String& bytes, int digits) {
  return Std(EncodeLength(bytes, digits) + bytes);
}

static bool Acceptable(const std::string& s, const std::string& proof) {
  const auto number = [&](size_t at, int digits) { return uint32_t(DecodeLength(s.data() + at, digits)); };
  size_t need = 14;
  if (s.size() < need || number(0, 4) + 4LL != static_cast<long long>(s.size())) return false;
  for (const size_t back : {8u, 6u, 4u})  // to the lengths of proof, key and request
    if ((need += number(need - back, back == 4 ? 4 : 2)) > s.size()) return false;
  return s[4] == 3 && s[5] == 18 && number(6, 2) == proof.size() && s.compare(8, proof.size(), proof) == 0;
}

// A wrong signature or proof shows before the rest is there.
static bool IsHopeless(const std::string& s, const std::string& proof) {
  if ((s.size() > 4 && s[4] != 3) || (s.size() > 5 && s[5] != 18)) return true;
  if (s.size() < 8) return false;
  const bool whole = s.size() >= 8 + proof.size();
  return DecodeLength(&s[6], 2) != int(proof.size()) || (whole && s.compare(8, proof.size(), proof) != 0);
}

static void CheckLines(const BVRequest& request, std::string rest) {
  const int count = int(std::count(rest.begin(), rest.end(), '\n'));
  Require(request.GetParamsCount() == count);
  for (int i = 1; i <= count + 2; i++) {
    String line = Bytes(Cut(rest, '\n'));
    Require(request.GetParam(i, 0) == line && request.GetParam(i, 1) == line.Trim());
    const int equals = line.Pos('=');
    String name = line.Copy(1, equals - 1).Trim();
    if (i > 1 || count == 0 || equals == 0 || name != name.CStr()) continue;  // the first of a name counts
    Require(request.GetNamedParam(name.CStr()) == line.Copy(equals + 1, line.Length()).Trim());
  }
}

TAV_LAWS(packet)(std::string input) {
  Twofish_initialise();
  static const TPasswordKeys prepared[] = {TPasswordKeys("secret"), TPasswordKeys("")};
  std::string knobs = Cut(input, '\n');
  const String key = Bytes(Cut(input, '\n')), text = Bytes(input);
  const TCipherKey session(key);
  knobs.resize(std::max<size_t>(knobs.size(), 3), '0');
  const auto knob = [&](size_t i) { return uint8_t(knobs[i] - '0'); };
  const TPasswordKeys& keys = prepared[knob(0) % 2];
  std::string packet = std::string(kSignature, 2) + Field(keys.proof, 2) +
                       Field(EncodeData(key, keys.cipher, 0), 2) + Field(EncodeData(text, session, 0), 4) +
                       std::string(knob(2), 't');
  packet = Field(Bytes(packet), 4);
  for (size_t i = 3; i + 1 < knobs.size(); i += 2) packet[knob(i) % packet.size()] ^= char(knob(i + 1));

  TPacketHead head;
  BVRequest request;
  for (size_t at = 0, have = 0; at < packet.size(); at = have) {
    have = std::min(packet.size(), at + knob(1) + 1);
    head.Feed(&packet[at], int(have - at));
    request.AddData(&packet[at], int(have - at));
    Require(request.WholePacket() == head.Whole());
    Require(head.Hopeless(keys) == IsHopeless(packet.substr(0, std::min<size_t>(have, 64)), Std(keys.proof)));
    Require(head.Whole() == (have >= 14 && head.Declared() <= kMaxPacket && head.Declared() + 4 <= int(have)));
  }
  const bool accepted = Acceptable(packet, Std(keys.proof));
  Require(head.CheckFrame({}, keys) == accepted && !(accepted && head.Hopeless(keys)));
  Require(request.ParseInitRequest(keys, {}) == accepted && (request.SessionCipher() != nullptr) == accepted);
  const String gotKey = request.GetSessionKey(), got = request.Text();
  if (!accepted) return Require(gotKey.Length() == 0);
  const TCipherKey& cipher = gotKey == key ? session : *request.SessionCipher();
  const auto sealed = [&](const String& field, const TCipherKey& under, long long at, long long size) {
    return Std(EncodeData(field, under, 0)) == packet.substr(size_t(at), size_t(size));
  };
  Require(sealed(gotKey, keys.cipher, head.KeyOffset(), head.KeySize()));
  Require(sealed(got, cipher, head.RequestOffset(), head.RequestSize()));
  CheckLines(request, Std(got));
}
