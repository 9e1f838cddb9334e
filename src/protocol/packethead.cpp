#include "protocol/packethead.h"

#include <string.h>

#include <algorithm>

#include "core/diag.h"
#include "protocol/bytes.h"
#include "protocol/tav_const.h"

namespace {

// Positions from 0; those behind the proof without its length, those behind the key without its length too.
constexpr int kSignatureAt = OFFSET_AUTH - 1;
constexpr int kProofSizeAt = OFFSET_PSWD - 1;
constexpr int kProofAt = OFFSET_KEY - 1;
constexpr int kRequestSizeAt = OFFSET_REQUEST - 1;
static_assert(TPacketHead::kKept == kProofAt + kProofSize);

// Lays those of the n bytes at position `at` that fall into the field at `fieldAt` into `field`.
void Catch(const char* bytes, long long at, int n, char* field, long long fieldAt, int fieldSize) {
  const long long begin = std::max(at, fieldAt), end = std::min(at + n, fieldAt + fieldSize);
  if (begin < end) memcpy(field + (begin - fieldAt), bytes + (begin - at), static_cast<size_t>(end - begin));
}

}  // namespace

TPacketHead::~TPacketHead() {
  explicit_bzero(kept, sizeof kept);
}

void TPacketHead::Feed(const char* bytes, int n) {
  if (n <= 0) return;
  const long long at = received;
  received += n;
  // Each length stands before the field whose place it tells, so no byte of that field has gone by unseen.
  Catch(bytes, at, n, kept, 0, kKept);
  if (received >= kProofAt) Catch(bytes, at, n, keySize, kProofAt + ProofSize(), sizeof keySize);
  const long long requestSizeAt = kRequestSizeAt + ProofSize();
  if (received >= requestSizeAt) Catch(bytes, at, n, requestSize, requestSizeAt + KeySize(), sizeof requestSize);
}

long long TPacketHead::Declared() const {
  return received < SIZELEN_PACKET ? 0 : LoadLittle32(kept);
}

long long TPacketHead::ProofSize() const {
  return DecodeLength(kept + kProofSizeAt, SIZELEN_PSWD);
}

int TPacketHead::KeySize() const {
  return DecodeLength(keySize, SIZELEN_KEY);
}

long long TPacketHead::RequestSize() const {
  return LoadLittle32(requestSize);
}

bool TPacketHead::Whole() const {
  return received >= SIZELEN_MINIMUM && Declared() <= kMaxPacket && Declared() + SIZELEN_PACKET <= received;
}

bool TPacketHead::Hopeless(const TPasswordKeys& keys) const {
  for (int i = 0; i < SIZELEN_AUTH; i++) {
    if (received > kSignatureAt + i && kept[kSignatureAt + i] != kSignature[i]) return true;
  }
  if (received < kProofAt) return false;
  if (ProofSize() != keys.proof.Length()) return true;
  return received >= kProofAt + ProofSize() && !ProofMatches(keys);
}

bool TPacketHead::ProofMatches(const TPasswordKeys& keys) const {
  const int size = keys.proof.Length();
  if (ProofSize() != size) return false;
  const char* proof = keys.proof.Data();
  unsigned differences = 0;
  for (int i = 0; i < size; i++) differences |= static_cast<unsigned char>(kept[kProofAt + i] ^ proof[i]);
  return differences == 0;
}

bool TPacketHead::CheckFrame(in_addr client, const TPasswordKeys& keys) const {
  Diag(client, "<-- TCP packet size: %d\n", static_cast<int>(received));
  if (received < SIZELEN_MINIMUM) return false;

  Diag(client, "<-- TAV packet size: %d\n", static_cast<int>(Declared()));
  if (Declared() + SIZELEN_PACKET != received) return false;

  long long size = SIZELEN_MINIMUM + ProofSize();
  Diag(client, "<-- Pswd size: %d\n", static_cast<int>(ProofSize()));
  if (size > received) return false;

  size += KeySize();
  Diag(client, "<-- Key size: %d\n", KeySize());
  if (size > received) return false;

  size += RequestSize();
  Diag(client, "<-- Req size: %d\n", static_cast<int>(RequestSize()));
  if (size > received) return false;

  if (memcmp(kept + kSignatureAt, kSignature, SIZELEN_AUTH) != 0) return false;
  if (ProofMatches(keys)) return true;
  Diag(client, "<-- Wrong password or MD5 error\n");
  return false;
}
