// The monitoring server's side of the wire, written on Nettle so that it shares no code with the agent.
//
//   request: N(4) 3 18 P(2) proof K(2) key R(4) text      reply: L(4) text      lengths little-endian
//
// The proof is the MD5 of the password; the key field is the session key under the password, the texts are
// under the session key.  Every wait ends at a deadline.  Each object belongs to one thread.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

constexpr double kDeadline = 20;  // seconds; sanitizer builds of the agent are slow

std::string Md5(const std::string& data);

enum class Direction { kSeal, kOpen };

// Twofish in 8-bit cipher feedback under the SHA-1 of `key`.
std::string Cipher(Direction direction, const std::string& data, const std::string& key);

const std::string kSession = "a session key";  // where a test has no reason for another

// What follows an upgrade's file.
std::string Digest(const std::string& file);

// A request field by field, so that a test can change one of them.  The shifts are added to the true lengths.
struct Packet {
  std::string session, signature, proof, key, text, tail;
  long long packetShift = 0, proofShift = 0, keyShift = 0, textShift = 0;

  std::string Bytes() const;
};

Packet Seal(const std::string& text, const std::string& password, const std::string& session = kSession);

class Stopwatch {
 public:
  double Seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); }

 private:
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

void Sleep(double seconds);

// True as soon as `condition` holds, false when it did not hold in time.
bool WaitFor(const std::function<bool()>& condition, double seconds = kDeadline);

// A socket that closes itself when its last copy goes.
class Socket {
 public:
  explicit Socket(int descriptor = -1);

  int Descriptor() const { return fd ? *fd : -1; }
  int Port() const;                                       // the local one
  bool Send(const std::string& bytes) const;              // all of it
  std::string Receive(double seconds = kDeadline) const;  // what comes next; empty at the end or the deadline
  bool EndsSilently(double seconds = kDeadline) const;    // no further byte comes, then the peer closes

 private:
  std::shared_ptr<int> fd;
};

// All on 127.0.0.1; port 0 picks one; the descriptor is -1 when it cannot be done.
Socket ServeTcp(int port = 0);
Socket ServeUdp();
Socket Accept(const Socket& listener);
Socket Connect(int port, const std::string& source = "127.0.0.1");

// Takes one datagram and sends `answer` to where it came from.
std::string TakeAndAnswer(const Socket& server, const std::string& answer);

// The next reply's text without the "\n\r" that ends it, "closed" when the peer closed without a byte, or a text
// that begins with "malformed".
std::string ReadReply(const Socket& socket, const std::string& session = kSession);

// Waits until the process at the other end has taken every byte that was sent to it.
bool WaitUntilTaken(const Socket& socket);
