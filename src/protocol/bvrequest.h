// A request: first the packet as it arrives, then the decrypted text, a line each for the command and its
// parameters.
//
// Built by one session; a const object may be read by any number of threads.
#pragma once

#include <netinet/in.h>

#include <vector>

#include "core/zostring.h"
#include "protocol/cipher.h"
#include "protocol/packethead.h"
#include "protocol/passwordkeys.h"

class BVRequest {
 public:
  BVRequest() = default;
  BVRequest(const String& newText);
  BVRequest(String&& newText);

  BVRequest& operator=(const String& newText);
  BVRequest& operator=(const char* newText);

  void AddData(const char* bytes, int n);
  const String& Text() const { return text; }
  int Length() const { return text.Length(); }

  // True when the bytes so far hold a whole packet.  A length that no packet can have is never whole.
  bool WholePacket() const;
  // Checks the frame and the proof, then puts the decrypted text in the packet's place.  Returns 1, or 0 for
  // anything else than one whole packet under this password; the session key is empty then.  `client` only tags
  // the diagnostic lines.
  int ParseInitRequest(const String& password, in_addr client);
  int ParseInitRequest(const TPasswordKeys& keys, in_addr client);

  String GetSessionKey() const { return sessionKey; }
  // The session key made ready for use; null until parsed.
  TCipherKeyPtr SessionCipher() const { return cipher; }
  // The same session key over another text: the parameters behind the command line.
  BVRequest WithText(const String& newText) const;

  int GetParamsCount() const;  // line feeds in the text
  // Line i (1-based; less counts as 1) without its line feed; empty beyond the end.  Costs the same for every i of
  // a text that was assigned or parsed; bytes added since are searched from the start.
  String GetParam(int i, int trim) const;
  // Value of the first line "name=value" that ends in a line feed, both sides trimmed; empty when there is none.
  String GetNamedParam(const char* name) const;

 private:
  TPacketHead Head() const;
  void IndexLines();

  String text;
  String sessionKey;
  TCipherKeyPtr cipher;
  std::vector<int> lineStarts;  // where every kLineStride-th line begins, from 0
};
