// A server's side of one request, for the benchmarks: plain blocking calls, one connection a request.
#pragma once

#include <string>

#include "core/zostring.h"

// The first line of a file: the password.
std::string FirstLine(const char* path);

// A whole request packet of the words, a command and its parameters, under a fixed session key.
String RequestPacket(char** words, int count, const String& password);

// Connects to the port on the loopback interface, or returns a closed one.
class TPeer {
 public:
  explicit TPeer(int port);
  TPeer(const TPeer&) = delete;
  TPeer& operator=(const TPeer&) = delete;
  ~TPeer();

  bool Send(const char* data, int length) const;
  // The body of the packet that comes, still encrypted; false when the peer closes before its end.
  bool Receive(std::string& body) const;
  // All bytes until the peer closes.
  std::string ReceiveAll() const;

 private:
  bool Fill(char* to, size_t n) const;

  int fd;
};

// What the body of a reply says.
std::string OpenReply(const std::string& body);
