// Listening, connecting with a time-out, and one-shot exchanges over TCP and UDP, IPv4 only.
//
// Each call works on sockets of its own, closes what it does not hand over and may run on any number of threads at
// once.  `error` is emptied first and says why when a call fails; the codes are those of netresults.h.  Time-outs
// do not count the name lookup.  A negative one is no time at all: a connect with it fails, a wait times out at
// once.  Waits end early, with whatever result, when the requester of the thread has gone (core/requester.h).
#pragma once

#include <sys/socket.h>

#include "core/closers.h"
#include "core/zostring.h"
#include "net/netresults.h"

// A blocking listener on the first address of `host` that can be bound; null or "" means every local address.
// Returns a close-on-exec descriptor, which the caller owns, or 0 with the reason.  Ports outside 0 to 65535 are
// refused; 0 lets the system choose.
int TcpListen(const char* host, int port, socklen_t& addressLength, String& error);
int TcpListen(const char* host, const char* service, socklen_t& addressLength, String& error);

// Connects to a TCP port; kNetDone hands the socket over.  With a time-out (milliseconds) the socket is
// non-blocking from then on; 0 connects for as long as the system tries and leaves it blocking.  On any other
// result there is no socket.
int PerformConnect(TFd& socket, const char* host, int port, int timeoutMs, String& error);
// Whether a TCP port accepts connections.
int TCPConnect(const char* host, int port, int timeoutMs, String& error);

// Connects, sends when sendLength > 0, receives once when receiveSize > 0; the time-out counts for each of the
// three.  Data that the peer does not take in that time count as sent once a byte has gone out; an answer that
// comes before the peer has taken them all ends the sending.  Returns the bytes received (0 with an empty text: the
// peer closed without a word), kNetDone when nothing was to be received, or a code.  With a time-out of 0 the
// sending takes its own time, and only an answer that is there already is received.
int SendReceiveTCPPacket(const char* host, int port, int timeoutMs, const char* sendBuffer, char* receiveBuffer,
                         int sendLength, int receiveSize, String& error);

// Sends one datagram when sendLength > 0, receives one when receiveSize > 0.  The time-out is in whole seconds,
// here alone; 0 takes only what is there already.  Returns the byte count of the last of the two (which may be 0),
// or a code.
int SendReceiveUDPPacket(const char* host, int port, int timeoutSeconds, const char* sendBuffer,
                         char* receiveBuffer, int sendLength, int receiveSize, String& error);
