// Which agents a command goes to.
#pragma once

#include <string>
#include <vector>

#include "client/failures.h"

struct TTarget {
  std::string host = "127.0.0.1";
  int port = 0;

  std::string Name() const {
    const bool colons = host.find(':') != std::string::npos;
    return (colons ? "[" + host + "]" : host) + ":" + std::to_string(port);
  }
};

// Reads a file of targets ("-": standard input): a line each, "host" or "host:port" ("[address]:port" for an
// address with colons); blanks around it, empty lines and what stands behind '#' do not count.  A line without a
// port gets `port`.
bool ReadHosts(const std::string& path, int port, std::vector<TTarget>& targets, TFailure& failure);
// One such line; false when it is malformed, or needs a port and `port` is 0.
bool ParseTarget(const std::string& text, int port, TTarget& target);
