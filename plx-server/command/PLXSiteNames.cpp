#include "PLXSiteNames.h"

#include <arpa/inet.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <utility>

namespace {

bool IsFour(std::string const& text_i) {
  in_addr four;
  return ::inet_pton(AF_INET, text_i.c_str(), &four) == 1;
}

// The first address, which is the one that tags connect to; empty without any.
std::string LookUp(std::string const& name_i) {
  addrinfo hints{};
  hints.ai_family = AF_INET;  // as tags connect
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(name_i.c_str(), nullptr, &hints, &found) != 0) return {};
  std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> const owner(found, ::freeaddrinfo);
  char text[INET_ADDRSTRLEN];
  auto const& address = reinterpret_cast<sockaddr_in const*>(found->ai_addr)->sin_addr;
  return ::inet_ntop(AF_INET, &address, text, sizeof text) ? text : "";
}

}  // namespace

std::vector<std::string> PLXSiteNameWarnings(PLXConfiguration const& configuration_i) {
  std::string const& listen = configuration_i.listenAddress;
  bool const isAnywhere = listen == "0.0.0.0" || listen == "::";
  std::vector<std::string> warnings;
  if (!isAnywhere && !IsFour(listen)) return warnings;  // no name helps: tags speak IPv4 alone
  for (PLXSiteConfiguration const& site : configuration_i.sites) {
    for (std::string const& host : site.hosts) {
      if (IsFour(host) || host.find(':') != host.npos) continue;
      std::string const address = LookUp(host);
      if (isAnywhere ? !address.empty() : address == listen) continue;
      std::string warning = "site " + site.name + ": on this machine " + host;
      warning += address.empty() ? " is no known name" : " is " + address;
      warning += ", and this server listens on " + listen;
      warning +=
          ". Pages that include pages of their own site do not reach it, nor do reports of failed mail. Put "
          "this line into /etc/hosts: ";
      warning.append(isAnywhere ? "127.0.0.1" : listen).append(" ").append(host);
      warnings.push_back(std::move(warning));
    }
  }
  return warnings;
}
