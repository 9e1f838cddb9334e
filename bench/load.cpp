// Asks an agent from many threads at once and prints requests a second and the spread of the times.
//
//   tav_load PORT PASSWORD_FILE THREADS SECONDS COMMAND [PARAMETER...]

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "core/closers.h"
#include "protocol/tav_const.h"

namespace {

using TClock = std::chrono::steady_clock;

// A whole request packet under a fixed session key.
String RequestPacket(const String& text, const String& password, const String& sessionKey) {
  const String proof = EncodePswd(password), key = EncodeData(sessionKey, password, 0);
  const String request = EncodeData(text, sessionKey, 0);
  String body(kSignature, 2);
  body += EncodeLength(proof, SIZELEN_PSWD) + proof + EncodeLength(key, SIZELEN_KEY) + key;
  body += EncodeLength(request, SIZELEN_REQUEST) + request;
  return EncodeLength(body, SIZELEN_PACKET) + body;
}

bool ReadAll(int fd, char* to, size_t n) {
  while (n > 0) {
    const ssize_t got = recv(fd, to, n, 0);
    if (got <= 0) return false;
    to += got;
    n -= static_cast<size_t>(got);
  }
  return true;
}

// One connection, one request; true when a whole reply came.
bool Ask(int port, const String& packet) {
  TFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const linger atOnce = {1, 0};  // or the closed connections of a long run would use up the local ports
  setsockopt(fd.Get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  if (connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return false;
  if (send(fd.Get(), packet.Data(), static_cast<size_t>(packet.Length()), MSG_NOSIGNAL) != packet.Length())
    return false;
  char length[SIZELEN_PACKET];
  if (!ReadAll(fd.Get(), length, sizeof length)) return false;
  std::vector<char> body(static_cast<unsigned>(DecodeLength(length, SIZELEN_PACKET)));
  return ReadAll(fd.Get(), body.data(), body.size());
}

double Percentile(const std::vector<double>& sorted, double share) {
  if (sorted.empty()) return 0;
  return sorted[static_cast<size_t>(share * static_cast<double>(sorted.size() - 1))];
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 6) {
    fprintf(stderr, "usage: %s PORT PASSWORD_FILE THREADS SECONDS COMMAND [PARAMETER...]\n", argv[0]);
    return 64;
  }
  std::string password;
  std::getline(std::ifstream(argv[2]), password);
  String text(argv[5]);
  text += "\r\n";
  for (int i = 6; i < argc; ++i) text += String(argv[i]) + "\r\n";
  Twofish_initialise();
  const String packet = RequestPacket(text, password.c_str(), "0123456789abcdef");

  const int port = atoi(argv[1]);
  const int threads = std::max(1, atoi(argv[3]));
  const auto end = TClock::now() + std::chrono::seconds(atoi(argv[4]));
  std::atomic<long> failures{0};
  std::vector<std::vector<double>> times(static_cast<size_t>(threads));
  std::vector<std::thread> askers;
  const auto begin = TClock::now();
  for (auto& mine : times) {
    askers.emplace_back([&] {
      for (auto start = TClock::now(); start < end; start = TClock::now()) {
        if (!Ask(port, packet)) ++failures;
        mine.push_back(std::chrono::duration<double, std::micro>(TClock::now() - start).count());
      }
    });
  }
  for (auto& asker : askers) asker.join();
  const double seconds = std::chrono::duration<double>(TClock::now() - begin).count();

  std::vector<double> all;
  for (const auto& mine : times) all.insert(all.end(), mine.begin(), mine.end());
  std::sort(all.begin(), all.end());
  printf("%-16s %3d threads  %8.0f requests/s  p50 %6.0f us  p99 %6.0f us  failed %ld of %zu\n", argv[5], threads,
         static_cast<double>(all.size()) / seconds, Percentile(all, 0.5), Percentile(all, 0.99), failures.load(),
         all.size());
  return failures == 0 ? 0 : 1;
}
