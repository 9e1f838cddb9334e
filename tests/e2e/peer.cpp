#include "peer.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <nettle/cfb.h>
#include <nettle/md5.h>
#include <nettle/sha1.h>
#include <nettle/twofish.h>
#include <poll.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <thread>

namespace {

const uint8_t* Octets(const std::string& s) {
  return reinterpret_cast<const uint8_t*>(s.data());
}

std::string Field(const std::string& content, long long shift, int lengthBytes) {
  std::string length;
  for (int i = 0; i < lengthBytes; ++i) {
    length += static_cast<char>((static_cast<long long>(content.size()) + shift) >> (8 * i) & 0xFF);
  }
  return length + content;
}

void Block(const void* schedule, size_t length, uint8_t* out, const uint8_t* in) {
  twofish_encrypt(static_cast<const twofish_ctx*>(schedule), length, out, in);
}

// `join` is bind or connect.
template <class Join>
bool At(const Socket& socket, Join join, const std::string& address, int port) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(static_cast<uint16_t>(port));
  inet_pton(AF_INET, address.c_str(), &to.sin_addr);
  return join(socket.Descriptor(), reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0;
}

bool Readable(int fd, double seconds) {
  pollfd wait{fd, POLLIN, 0};
  return poll(&wait, 1, static_cast<int>(seconds * 1000)) == 1;
}

}  // namespace

std::string Md5(const std::string& data) {
  md5_ctx context;
  std::string digest(MD5_DIGEST_SIZE, '\0');
  md5_init(&context);
  md5_update(&context, data.size(), Octets(data));
  md5_digest(&context, digest.size(), reinterpret_cast<uint8_t*>(&digest[0]));
  return digest;
}

std::string Cipher(Direction direction, const std::string& data, const std::string& key) {
  // 20 bytes of digest and four zero bytes make the 192-bit key; its encryption of all ones starts the register.
  uint8_t derived[24] = {}, start[TWOFISH_BLOCK_SIZE];
  sha1_ctx hash;
  sha1_init(&hash);
  sha1_update(&hash, key.size(), Octets(key));
  sha1_digest(&hash, SHA1_DIGEST_SIZE, derived);
  twofish_ctx schedule;
  twofish192_set_key(&schedule, derived);
  memset(start, 0xFF, sizeof start);
  Block(&schedule, sizeof start, start, start);

  std::string out(data.size(), '\0');
  const auto run = direction == Direction::kSeal ? cfb8_encrypt : cfb8_decrypt;
  run(&schedule, Block, sizeof start, start, data.size(), reinterpret_cast<uint8_t*>(&out[0]), Octets(data));
  return out;
}

std::string Digest(const std::string& file) {
  return Cipher(Direction::kSeal, Md5(file), kSession);
}

std::string Packet::Bytes() const {
  return Field(signature + Field(proof, proofShift, 2) + Field(key, keyShift, 2) + Field(text, textShift, 4) + tail,
               packetShift, 4);
}

Packet Seal(const std::string& text, const std::string& password, const std::string& session) {
  return {session,
          "\x03\x12",
          password.empty() ? "" : Md5(password),
          Cipher(Direction::kSeal, session, password),
          Cipher(Direction::kSeal, text, session),
          ""};
}

void Sleep(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

bool WaitFor(const std::function<bool()>& condition, double seconds) {
  for (Stopwatch watch; watch.Seconds() < seconds;) {
    if (condition()) return true;
    Sleep(0.005);
  }
  return condition();
}

Socket::Socket(int descriptor)
    : fd(new int(descriptor), [](int* owned) {
        if (*owned >= 0) close(*owned);
        delete owned;
      }) {}

int Socket::Port() const {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(Descriptor(), reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

bool Socket::Send(const std::string& bytes) const {
  ssize_t n = 0;
  for (size_t sent = 0; sent < bytes.size(); sent += static_cast<size_t>(n)) {
    n = send(Descriptor(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
  }
  return true;
}

std::string Socket::Receive(double seconds) const {
  char buffer[65536];
  const ssize_t n = Readable(Descriptor(), seconds) ? recv(Descriptor(), buffer, sizeof buffer, 0) : 0;
  return std::string(buffer, n > 0 ? static_cast<size_t>(n) : 0);
}

bool Socket::EndsSilently(double seconds) const {
  char byte;
  return Readable(Descriptor(), seconds) && recv(Descriptor(), &byte, 1, 0) <= 0;
}

Socket ServeTcp(int port) {
  const Socket out(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return At(out, bind, "127.0.0.1", port) && listen(out.Descriptor(), 16) == 0 ? out : Socket();
}

Socket ServeUdp() {
  const Socket out(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  return At(out, bind, "127.0.0.1", 0) ? out : Socket();
}

Socket Accept(const Socket& listener) {
  if (!Readable(listener.Descriptor(), kDeadline)) return Socket();
  return Socket(accept4(listener.Descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
}

Socket Connect(int port, const std::string& source) {
  const Socket out(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int on = 1;
  setsockopt(out.Descriptor(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return At(out, bind, source, 0) && At(out, connect, "127.0.0.1", port) ? out : Socket();
}

std::string TakeAndAnswer(const Socket& server, const std::string& answer) {
  char data[512];
  sockaddr_in from{};
  socklen_t length = sizeof from;
  const ssize_t n =
      recvfrom(server.Descriptor(), data, sizeof data, 0, reinterpret_cast<sockaddr*>(&from), &length);
  if (n > 0)
    sendto(server.Descriptor(), answer.data(), answer.size(), 0, reinterpret_cast<sockaddr*>(&from), length);
  return std::string(data, n > 0 ? static_cast<size_t>(n) : 0);
}

std::string ReadReply(const Socket& socket, const std::string& session) {
  std::string bytes;
  for (size_t whole = 4; bytes.size() < whole;) {
    const std::string more = socket.Receive();
    if (more.empty()) return bytes.empty() ? "closed" : "malformed: it ends after " + std::to_string(bytes.size());
    bytes += more;
    if (bytes.size() < 4) continue;
    whole = 4;
    for (size_t i = 0; i < 4; ++i) whole += static_cast<size_t>(Octets(bytes)[i]) << (8 * i);
    if (bytes.size() > whole) return "malformed: bytes follow";
  }
  std::string text = Cipher(Direction::kOpen, bytes.substr(4), session);
  if (text.size() < 2 || text.compare(text.size() - 2, 2, "\n\r") != 0) return "malformed end: " + text;
  return text.substr(0, text.size() - 2);
}

bool WaitUntilTaken(const Socket& socket) {
  sockaddr_in peer{};
  socklen_t length = sizeof peer;
  getpeername(socket.Descriptor(), reinterpret_cast<sockaddr*>(&peer), &length);
  const unsigned own = static_cast<unsigned>(socket.Port()), other = ntohs(peer.sin_port);
  return WaitFor([=] {
    std::ifstream table("/proc/net/tcp");
    unsigned local, remote, unsent, unread, waiting = 0, ends = 0;
    for (std::string line; std::getline(table, line);) {
      const char* format = " %*u: %*8x:%x %*8x:%x %*x %x:%x";
      if (sscanf(line.c_str(), format, &local, &remote, &unsent, &unread) != 4) continue;
      const bool ours = local == own && remote == other, theirs = local == other && remote == own;
      waiting += ours ? unsent : theirs ? unread : 0;
      ends += ours || theirs;
    }
    return ends == 2 && waiting == 0;
  });
}
