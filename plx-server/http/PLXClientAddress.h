#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "PLXRequest.h"

// Tells who sent a request: the peer of the socket, or behind a proxy that the configuration names the client
// that the proxy names; and whether it came from this machine itself. Addresses are written as inet_ntop
// does, IPv4 ones without a mapping prefix. One thread at a time.
class PLXClientAddress {
 public:
  explicit PLXClientAddress(std::vector<std::string> const& proxies_i);

  // Fills remoteAddress, remotePort and isFromThisMachine from peerAddress and the headers.
  // Requires: peerAddress and remotePort are the socket's.
  void Fill(PLXRequest& request_io);
  bool IsProxy(std::string const& address_i) const { return myProxies.contains(address_i); }
  // Whether it is a loopback address or one of this machine's interfaces, which are looked at anew now and
  // then.
  bool IsOwn(std::string const& address_i);

 private:
  std::unordered_set<std::string> myProxies;
  std::unordered_set<std::string> myOwn;
  std::chrono::steady_clock::time_point myRead;
};

// An address in its one spelling, without brackets and port; "" when it is none.
std::string CanonicalAddress(std::string_view text_i);
