// The head of a request packet and the rules by which it is taken or refused; the only place where they stand.
//
// A request packet, positions from 0; lengths are unsigned and little-endian, all sums are made in 64 bits:
//
//   0 N:4   4 3:1 18:1   6 P:2   8 proof:P   8+P K:2   10+P key:K   10+P+K R:4   14+P+K request:R   ignored...
//
// The head needs the length fields and the proof alone, so it stays small whatever a peer sends: the rest of a
// packet known to be bad can be dropped, and the answer and the diagnostic lines come out as if it had been kept.
//
// An object belongs to one thread at a time.
#pragma once

#include <netinet/in.h>

#include "protocol/passwordkeys.h"

// Above this a declared packet length is taken for noise: nothing that a server sends comes near it.
inline constexpr long long kMaxPacket = 16LL * 1024 * 1024;

class TPacketHead {
 public:
  // The first bytes are all kept: the lengths of packet and proof, the signature, a proof of the right size.
  static constexpr int kKept = 24;

  TPacketHead() = default;
  TPacketHead(const TPacketHead&) = default;
  TPacketHead& operator=(const TPacketHead&) = default;
  ~TPacketHead();  // wipes the proof

  // The packet's next n bytes.  Costs the same for any n.
  void Feed(const char* bytes, int n);

  long long Received() const { return received; }
  // The first kKept bytes, as far as they have come.
  const char* Kept() const { return kept; }
  // N, the number of bytes behind the first four; 0 until those are there.
  long long Declared() const;
  // True when a whole packet has come.  A length above kMaxPacket is never whole.
  bool Whole() const;
  // True as soon as the packet is known to be refused for its signature or its proof.
  bool Hopeless(const TPasswordKeys& keys) const;
  // Judges what has come as one packet: the lengths, the signature, the proof, with the diagnostic lines about
  // them, tagged with `client`.  The proof is compared in constant time.
  bool CheckFrame(in_addr client, const TPasswordKeys& keys) const;

  // Where the encrypted fields lie, from 0.  REQUIRES: CheckFrame was true.
  long long KeyOffset() const { return 10 + ProofSize(); }
  int KeySize() const;
  long long RequestOffset() const { return 14 + ProofSize() + KeySize(); }
  long long RequestSize() const;

 private:
  long long ProofSize() const;
  bool ProofMatches(const TPasswordKeys& keys) const;

  long long received = 0;
  char kept[kKept] = {};
  char keySize[2] = {};
  char requestSize[4] = {};
};
