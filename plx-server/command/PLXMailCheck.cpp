#include "PLXMailCheck.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iostream>
#include <memory>
#include <netdb.h>
#include <poll.h>
#include <set>
#include <sys/socket.h>
#include <unistd.h>

#include "PLXCommandLine.h"
#include "PLXConfigurationText.h"
#include "PLXMailQueue.h"
#include "PLXPreferenceStore.h"
#include "PLXServer.h"
#include "PLXSite.h"
#include "PLXUninterrupted.h"

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kModule[] = "Network Module";
constexpr char kDefaultPort[] = "25";
constexpr std::chrono::seconds kPatience(10);
constexpr std::size_t kLongestGreeting = 4096;

class Socket {
 public:
  explicit Socket(addrinfo const& address_i)
      : myDescriptor(::socket(address_i.ai_family, address_i.ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK,
                              address_i.ai_protocol)) {}
  ~Socket() {
    if (myDescriptor >= 0) ::close(myDescriptor);
  }
  Socket(Socket const&) = delete;
  Socket& operator=(Socket const&) = delete;
  int Get() const { return myDescriptor; }

  bool Wait(short events_i, Clock::time_point until_i) const {
    return PLXUninterrupted([&] {
             auto const left = std::chrono::ceil<std::chrono::milliseconds>(until_i - Clock::now()).count();
             pollfd entry{myDescriptor, events_i, 0};
             return ::poll(&entry, 1, static_cast<int>(std::max<decltype(left)>(left, 0)));
           }) == 1;
  }

 private:
  int myDescriptor;
};

// Zero, or the error.
int Connect(Socket const& socket_i, addrinfo const& address_i) {
  if (socket_i.Get() < 0) return errno;
  if (::connect(socket_i.Get(), address_i.ai_addr, address_i.ai_addrlen) == 0) return 0;
  if (errno != EINPROGRESS) return errno;
  if (!socket_i.Wait(POLLOUT, Clock::now() + kPatience)) return ETIMEDOUT;
  int error = 0;
  socklen_t size = sizeof error;
  return ::getsockopt(socket_i.Get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

std::string ReadLine(Socket const& socket_i) {
  std::string line;
  auto const until = Clock::now() + kPatience;
  char part[512];
  while (line.find('\n') == line.npos && line.size() < kLongestGreeting && socket_i.Wait(POLLIN, until)) {
    ssize_t const count = PLXUninterrupted([&] { return ::recv(socket_i.Get(), part, sizeof part, 0); });
    if (count <= 0) break;
    line.append(part, static_cast<std::size_t>(count));
  }
  line.resize(std::min(line.size(), line.find('\n')));
  return line;
}

std::string TestPage(PLXNamedMailServer const& row_i, std::string const& address_i) {
  std::string const server = EncodeHTML(row_i.server);
  std::string page = "<plxSendMail mailServer=\"";
  page.append(server).append("\" from=\"").append(address_i).append("\" to=\"").append(address_i);
  page.append("\" subject=\"plxserver check: ").append(row_i.region);
  page.append("\">This message was sent by plxserver check --send-test. The mail server ").append(server);
  return page.append(" of the region ").append(row_i.region).append(" takes mail.</plxSendMail>");
}

std::string Words(int error_i) { return std::generic_category().message(error_i); }

}  // namespace

std::vector<PLXNamedMailServer> PLXNamedMailServers(PLXConfiguration const& configuration_i) {
  std::vector<PLXNamedMailServer> servers;
  fs::path const file = configuration_i.state / "preferences.sqlite";
  std::error_code none;
  if (configuration_i.recordsSource.empty() && !fs::exists(file, none)) return servers;
  auto const store = PLXPreferenceStore::Open(configuration_i);
  PLXPreferenceStore const& preferences = *store;
  PLXSites const sites(configuration_i);
  for (auto const& site : sites.All()) {
    for (auto const& region : site->Regions()) {
      auto const isOn = preferences.Get(region->Key(), kModule, "plxSendMail");
      if (isOn && *isOn == "no") continue;  // its pages send no mail
      auto const use = preferences.Get(region->Key(), kModule, "useMailServerName");
      auto const name = preferences.Get(region->Key(), kModule, "mailServerName");
      if (use && name && !name->empty() && *use != "never") servers.push_back({region->Key(), *name});
    }
  }
  return servers;
}

std::string PLXTryMailServer(std::string const& server_i) {
  auto const colon = server_i.find(':');
  std::string const host = server_i.substr(0, colon);
  std::string const port = colon == server_i.npos ? kDefaultPort : server_i.substr(colon + 1);
  addrinfo hints{};
  hints.ai_family = AF_INET;  // as mail is sent
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (int const problem = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &found); problem != 0) {
    return server_i + ": the name cannot be looked up (" + ::gai_strerror(problem) + ").";
  }
  std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> const owner(found, ::freeaddrinfo);
  Socket const socket(*found);
  if (int const error = Connect(socket, *found); error != 0) {
    return server_i + ": no connection (" + Words(error) + ").";
  }
  std::string const greeting = ReadLine(socket);
  constexpr std::string_view kLeave = "QUIT\r\n";
  ::send(socket.Get(), kLeave.data(), kLeave.size(), MSG_NOSIGNAL);
  if (greeting.starts_with("220")) return {};
  if (greeting.empty()) return server_i + ": no greeting within ten seconds. Is it a mail server?";
  return server_i + ": it greets with " + QuotedForPeople(greeting) + ", a mail server with 220.";
}

int PLXSendTestMail(PLXConfiguration const& configuration_i, std::vector<PLXNamedMailServer> const& servers_i,
                    std::string const& address_i) {
  PLXSites const sites(configuration_i);
  PLXRecordEngine records({configuration_i.state, configuration_i.recordsSource, configuration_i.recordsUser,
                           configuration_i.recordsPassword});
  PLXMailQueue const queue(records, sites);
  std::set<std::string> before;
  for (PLXQueuedMail const& mail : queue.List()) before.insert(mail.number);
  std::string problem;
  {
    PLXServer server(configuration_i, {}, PLXServer::Use::kRender);
    std::vector<std::string> problems;
    if (!server.LoadModules(problems)) return PLXFail(kExitUnavailable, problems.front());
    for (PLXNamedMailServer const& row : servers_i) {
      PLXResponse const response = server.RenderText(TestPage(row, EncodeHTML(address_i)), row.region, {});
      if (response.body.empty()) continue;
      return PLXFail(kExitUsage, address_i +
                                     ": the page cannot send to this address. Give one such as "
                                     "name@example.org.");
    }
  }
  // What failed is in the list, or on its way there.
  PLXServer server(configuration_i, {}, PLXServer::Use::kRender);
  std::vector<std::string> problems;
  if (!server.LoadModules(problems)) return PLXFail(kExitUnavailable, problems.front());
  int code = kExitGood;
  for (PLXNamedMailServer const& row : servers_i) {
    server.RenderText("<plxSendMail mode=\"admin\"></plxSendMail>", row.region, {});
  }
  auto const after = queue.List();
  for (PLXNamedMailServer const& row : servers_i) {
    auto const failed = std::ranges::find_if(after, [&](PLXQueuedMail const& mail) {
      return before.count(mail.number) == 0 && mail.subject == "plxserver check: " + row.region;
    });
    if (failed == after.end()) {
      std::cout << row.region << ": " << row.server << " took the message to " << address_i << ".\n";
    } else {
      code = PLXFail(kExitUnavailable, row.region + ": " + row.server + " did not take the message (" +
                                           failed->reason + "). It is in the list of failed mail as " +
                                           failed->number + ".");
    }
  }
  return code;
}
