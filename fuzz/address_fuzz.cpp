// An address is allowed when an item of the list holds it, and only then.
#include <arpa/inet.h>

#include "config/ipfilter.h"
#include "fuzz/law.h"

using TRange = std::pair<uint32_t, uint32_t>;

// What follows the first text that is no address, or is 0.0.0.0, does not count.
static std::vector<TRange> Ranges(const std::string& list) {
  std::string work;
  std::copy_if(list.begin(), list.end(), std::back_inserter(work), islistsetchar);
  const auto next = [&] {
    const std::string text = work.substr(0, work.find_first_of(",-"));
    work.erase(0, text.size());
    in_addr address = {};
    return inet_aton(text.c_str(), &address) && address.s_addr != INADDR_NONE ? ntohl(address.s_addr) : 0;
  };
  std::vector<TRange> ranges;
  while (work.erase(0, work.find_first_of("0123456789")), !work.empty()) {
    const uint32_t from = next();
    if (from == 0) break;
    const bool range = work.size() > 1 && work[0] == '-';
    work.erase(0, 1);
    const uint32_t second = range ? next() : 0, to = second == 0 ? from : second;
    work.erase(0, range ? 1 : 0);
    ranges.push_back(std::minmax(from, to));
  }
  return ranges;
}

TAV_LAWS(address)(std::string input) {
  const std::vector<TRange> ranges = Ranges(input);
  std::vector<uint32_t> peers = {0, 1, 0x7F000001, 0xFFFFFFFF};
  for (const TRange& r : ranges)
    if (peers.size() < 64) peers.insert(peers.end(), {r.first - 1, r.first, r.second, r.second + 1});
  for (const uint32_t peer : peers) {
    const bool held = std::any_of(ranges.begin(), ranges.end(),
                                  [peer](const TRange& r) { return r.first <= peer && peer <= r.second; });
    String error;
    Require(IPAllowed(in_addr{htonl(peer)}, Bytes(input), error) == held);
  }
}
