// Asks an agent from many threads at once and prints requests a second and the spread of the times.
//
//   tav_load PORT PASSWORD_FILE THREADS SECONDS COMMAND [PARAMETER...]
//   tav_load PORT - THREADS SECONDS LINE          another's program, which answers a line and closes

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "bench/wire.h"
#include "protocol/twofish.h"

namespace {

using TClock = std::chrono::steady_clock;

// One connection, one request; true when a whole reply came.  A packet without a length field asks a line of a
// peer that closes behind its answer.
bool Ask(int port, const String& packet, bool isLine) {
  const TPeer peer(port);
  std::string body;
  if (!peer.Send(packet.Data(), packet.Length())) return false;
  return isLine ? !peer.ReceiveAll().empty() : peer.Receive(body);
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
  Twofish_initialise();
  const bool isLine = argv[2][0] == '-';
  const String packet =
      isLine ? String(argv[5]) + "\n" : RequestPacket(argv + 5, argc - 5, FirstLine(argv[2]).c_str());

  const int port = atoi(argv[1]);
  const int threads = std::max(1, atoi(argv[3]));
  const auto end = TClock::now() + std::chrono::duration<double>(atof(argv[4]));
  std::atomic<long> failures{0};
  std::vector<std::vector<double>> times(static_cast<size_t>(threads));
  std::vector<std::thread> askers;
  const auto begin = TClock::now();
  for (auto& mine : times) {
    askers.emplace_back([&] {
      for (auto start = TClock::now(); start < end; start = TClock::now()) {
        if (!Ask(port, packet, isLine)) ++failures;
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
