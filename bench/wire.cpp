#include "bench/wire.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>

#include "protocol/tav_const.h"

namespace {

const String kSessionKey("0123456789abcdef");

}  // namespace

std::string FirstLine(const char* path) {
  std::string line;
  std::ifstream file(path);
  std::getline(file, line);
  return line;
}

String RequestPacket(char** words, int count, const String& password) {
  String text;
  for (int i = 0; i < count; ++i) text += String(words[i]) + "\r\n";
  const String proof = EncodePswd(password), key = EncodeData(kSessionKey, password, 0);
  const String request = EncodeData(text, kSessionKey, 0);
  String body(kSignature, SIZELEN_AUTH);
  body += EncodeLength(proof, SIZELEN_PSWD) + proof + EncodeLength(key, SIZELEN_KEY) + key;
  body += EncodeLength(request, SIZELEN_REQUEST) + request;
  return EncodeLength(body, SIZELEN_PACKET) + body;
}

std::string OpenReply(const std::string& body) {
  const String text = DecodeData(String(body.data(), static_cast<int>(body.size())), kSessionKey);
  return std::string(text.Data(), static_cast<size_t>(text.Length()));
}

TPeer::TPeer(int port) : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const linger atOnce = {1, 0};  // or the closed connections of a long run would use up the local ports
  setsockopt(fd, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return;
  close(fd);
  fd = -1;
}

TPeer::~TPeer() {
  if (fd >= 0) close(fd);
}

bool TPeer::Send(const char* data, int length) const {
  return fd >= 0 && send(fd, data, static_cast<size_t>(length), MSG_NOSIGNAL) == length;
}

bool TPeer::Fill(char* to, size_t n) const {
  while (n > 0) {
    const ssize_t got = recv(fd, to, n, 0);
    if (got <= 0) return false;
    to += got;
    n -= static_cast<size_t>(got);
  }
  return true;
}

bool TPeer::Receive(std::string& body) const {
  char length[SIZELEN_PACKET];
  if (!Fill(length, sizeof length)) return false;
  body.resize(static_cast<unsigned>(DecodeLength(length, SIZELEN_PACKET)));
  return Fill(&body[0], body.size());
}

std::string TPeer::ReceiveAll() const {
  std::string all;
  char block[4096];
  for (ssize_t n; (n = recv(fd, block, sizeof block, 0)) > 0;) all.append(block, static_cast<size_t>(n));
  return all;
}
