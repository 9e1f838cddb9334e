// Asks an agent the same again and again, one after the other; prints the best time in microseconds and the last
// reply, its lines as bars.
//
//   tav_ask PORT PASSWORD_FILE TIMES COMMAND [PARAMETER...]

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>

#include "bench/wire.h"
#include "protocol/twofish.h"

int main(int argc, char** argv) {
  if (argc < 5) {
    fprintf(stderr, "usage: %s PORT PASSWORD_FILE TIMES COMMAND [PARAMETER...]\n", argv[0]);
    return 64;
  }
  Twofish_initialise();
  const String packet = RequestPacket(argv + 4, argc - 4, FirstLine(argv[2]).c_str());
  double best = 1e12;
  std::string body;
  for (int i = atoi(argv[3]); i > 0; --i) {
    const auto begin = std::chrono::steady_clock::now();
    const TPeer peer(atoi(argv[1]));
    if (!peer.Send(packet.Data(), packet.Length()) || !peer.Receive(body)) {
      fprintf(stderr, "no answer\n");
      return 1;
    }
    best =
        std::min(best, std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count());
  }
  std::string text = OpenReply(body).substr(0, 200);
  std::replace(text.begin(), text.end(), '\n', '|');
  text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
  printf("%.1f %s\n", best, text.c_str());
  return 0;
}
