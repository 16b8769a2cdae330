#include "PLXClientAddress.h"

#include <arpa/inet.h>
#include <cstring>
#include <ifaddrs.h>
#include <netinet/in.h>

#include "PLXASCII.h"

namespace {

// Interfaces come and go rarely; asking for them costs a few system calls.
constexpr std::chrono::seconds kOwnAddresses_Life{10};

std::string Written(int family_i, void const* bytes_i) {
  char text[INET6_ADDRSTRLEN];
  return ::inet_ntop(family_i, bytes_i, text, sizeof text) ? text : "";
}

std::string Written(in6_addr const& address_i) {
  // A client of IPv4 on a socket of IPv6 (RFC 4291, section 2.5.5.2).
  if (IN6_IS_ADDR_V4MAPPED(&address_i)) return Written(AF_INET, address_i.s6_addr + 12);
  return Written(AF_INET6, &address_i);
}

bool IsLoopback(std::string const& address_i) { return address_i.starts_with("127.") || address_i == "::1"; }

std::unordered_set<std::string> ReadOwnAddresses() {
  std::unordered_set<std::string> result;
  ifaddrs* list = nullptr;
  if (::getifaddrs(&list) != 0) return result;
  for (ifaddrs const* one = list; one; one = one->ifa_next) {
    if (!one->ifa_addr) continue;
    if (one->ifa_addr->sa_family == AF_INET) {
      sockaddr_in address;
      std::memcpy(&address, one->ifa_addr, sizeof address);
      result.insert(Written(AF_INET, &address.sin_addr));
    } else if (one->ifa_addr->sa_family == AF_INET6) {
      sockaddr_in6 address;
      std::memcpy(&address, one->ifa_addr, sizeof address);
      result.insert(Written(address.sin6_addr));
    }
  }
  ::freeifaddrs(list);
  return result;
}

// The hops that the proxies wrote down, in order; "" for one that is no address.
std::vector<std::string> Hops(PLXRequest const& request_i) {
  std::vector<std::string> result;
  for (PLXNameValue const& header : request_i.headers) {
    if (!EqualIgnoringCase(header.name, "X-Forwarded-For")) continue;
    std::string_view rest = header.value;
    while (true) {
      std::size_t const comma = rest.find(',');
      result.push_back(CanonicalAddress(rest.substr(0, comma)));
      if (comma == rest.npos) break;
      rest.remove_prefix(comma + 1);
    }
  }
  return result;
}

// A request that passed through a proxy which does not say for whom came from anybody.
bool IsForwardedForNobody(PLXRequest const& request_i) {
  bool isForwarded = false;
  for (PLXNameValue const& header : request_i.headers) {
    if (EqualIgnoringCase(header.name, "X-Forwarded-For")) return false;
    isForwarded = isForwarded || BeginsIgnoringCase(header.name, "X-Forwarded-") ||
                  EqualIgnoringCase(header.name, "X-Real-IP") || EqualIgnoringCase(header.name, "Via");
  }
  return isForwarded;
}

}  // namespace

std::string CanonicalAddress(std::string_view text_i) {
  std::size_t const first = text_i.find_first_not_of(" \t");
  if (first == text_i.npos) return {};
  std::string text(text_i.substr(first, text_i.find_last_not_of(" \t") - first + 1));
  if (text.front() == '[') {
    std::size_t const close = text.find(']');
    if (close == text.npos) return {};
    text = text.substr(1, close - 1);
  } else if (std::size_t const colon = text.find(':');
             colon != text.npos && text.find(':', colon + 1) == text.npos) {
    text.erase(colon);
  }
  in_addr four;
  if (::inet_pton(AF_INET, text.c_str(), &four) == 1) return Written(AF_INET, &four);
  in6_addr six;
  if (::inet_pton(AF_INET6, text.c_str(), &six) == 1) return Written(six);
  return {};
}

PLXClientAddress::PLXClientAddress(std::vector<std::string> const& proxies_i) {
  for (std::string const& proxy : proxies_i) {
    if (std::string address = CanonicalAddress(proxy); !address.empty()) myProxies.insert(std::move(address));
  }
}

void PLXClientAddress::Fill(PLXRequest& request_io) {
  request_io.remoteAddress = request_io.peerAddress;
  bool const peerIsProxy = myProxies.contains(request_io.peerAddress);
  bool ownAllTheWay = (peerIsProxy || IsOwn(request_io.peerAddress)) && !IsForwardedForNobody(request_io);
  for (PLXNameValue const& header : request_io.headers) {
    if (EqualIgnoringCase(header.name, "Forwarded")) ownAllTheWay = false;
  }
  std::vector<std::string> const hops = Hops(request_io);
  // Anyone may write anything into the list, so each hop can only make a request more foreign, never less.
  for (std::string const& hop : hops) ownAllTheWay = ownAllTheWay && (IsOwn(hop) || myProxies.contains(hop));
  request_io.isFromThisMachine = ownAllTheWay;

  // From the right, each hop was written by the one after it: believed as long as that one is a proxy of
  // ours.
  if (!peerIsProxy) return;
  for (auto hop = hops.rbegin(); hop != hops.rend() && !hop->empty(); ++hop) {
    request_io.remoteAddress = *hop;
    request_io.remotePort = 0;
    if (!myProxies.contains(*hop)) break;
  }
}

bool PLXClientAddress::IsOwn(std::string const& address_i) {
  if (IsLoopback(address_i)) return true;
  auto const now = std::chrono::steady_clock::now();
  if (myOwn.empty() || now - myRead > kOwnAddresses_Life) {
    myOwn = ReadOwnAddresses();
    myRead = now;
  }
  return myOwn.contains(address_i);
}
