// A connected socket as an object, for a conversation of more than one exchange.
//
// Used by one thread at a time; closes its socket when it goes away.  Every operation empties the error text first
// and leaves the reason there when it fails; the codes are those of netresults.h.
#pragma once

#include "core/closers.h"
#include "core/zostring.h"
#include "net/netresults.h"

class TSyncSocket {
 public:
  static constexpr int kTCP = 1;
  static constexpr int kUDP = 2;

  explicit TSyncSocket(int socketKind) : kind(socketKind) {}

  // TCP: as PerformConnect.  UDP: sets the peer, the time-out has no meaning.  Returns kNetDone or a code; there is
  // no socket after a failure.
  int Connect(const char* host, int port, int timeoutMs);
  // Looks at the socket for up to 5 milliseconds; false without a socket or when that look fails.  A peer that has
  // gone shows only when data are sent or received.
  bool Connected() const;
  // Returns the number of bytes sent, 0 when there were none to send, or kNetNotSent.  Takes as long as the peer
  // does to take them: the time-out is not used.
  int SendBuf(const char* data, int length, int timeoutMs);
  int SendString(const String& text, int timeoutMs);
  // Waits for data and receives once, at most 20480 bytes.  Returns their number (0 with an empty error: the peer
  // has closed) or a code; `text` is empty then.
  int ReadString(String& text, int timeoutMs);
  void Disconnect();

  const String& Error() const { return error; }

 private:
  int ConnectUDP(const char* host, int port);

  TFd socket;
  int kind;
  String error;
};
