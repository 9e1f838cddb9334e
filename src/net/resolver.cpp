#include "net/resolver.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netdb.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <vector>

namespace {

constexpr size_t kFirstBuffer = 2048;
constexpr size_t kLargestBuffer = 256 * 1024;  // more than the addresses of any name server's answer
constexpr size_t kLongestHostName = 254;

// Looks a name up among IPv4 addresses.  The entry's data lies in `buffer`, which grows as needed.
bool LookUp(const char* name, hostent& entry, std::vector<char>& buffer) {
  for (buffer.resize(kFirstBuffer);; buffer.resize(buffer.size() * 2)) {
    hostent* found = nullptr;
    int lookupError = 0;
    const int rc = gethostbyname_r(name, &entry, buffer.data(), buffer.size(), &found, &lookupError);
    if (rc != ERANGE || buffer.size() >= kLargestBuffer) return rc == 0 && found != nullptr;
  }
}

}  // namespace

char* inet_ntoa_safe(in_addr address, char* buffer, int size) {
  if (size < 1) return buffer;
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address, text, sizeof text);
  snprintf(buffer, static_cast<size_t>(size), "%s", text);
  return buffer;
}

String IP2String(in_addr address) {
  char text[24];
  return String(inet_ntoa_safe(address, text, sizeof text));
}

int GetHostIP(const char* host, in_addr& address, String& error) {
  address.s_addr = inet_addr(host);
  if (address.s_addr != INADDR_NONE) return kNetDone;

  // 255.255.255.255 reads like a failure and is looked up as well; the lookup knows dotted forms too.
  hostent entry = {};
  std::vector<char> buffer;
  if (!LookUp(host, entry, buffer) || entry.h_addr_list[0] == nullptr) {
    error = "Cannot resolve server name to IP address";
    return kNetNoHost;
  }
  if (entry.h_length != static_cast<int>(sizeof address)) {
    error = "Name resolution error: unknown address structure";
    return kNetNoHost;
  }
  memcpy(&address, entry.h_addr_list[0], sizeof address);
  return kNetDone;
}

int GetHostAddress(const char* host, int port, sockaddr_in& address, String& error) {
  address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  return GetHostIP(host, address.sin_addr, error);
}

in_addr GetMyIP() {
  in_addr address = {};
  char name[kLongestHostName + 1] = "";
  String error;
  if (gethostname(name, kLongestHostName) != 0) return address;
  if (GetHostIP(name, address, error) != kNetDone) address.s_addr = 0;
  return address;
}
