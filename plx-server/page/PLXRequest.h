#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct PLXNameValue {
  std::string name;
  std::string value;
};

// Finds the occurrence `index_i` (0 first) of a name; null when there are not so many. Header names, cookies
// and CGI variables ignore letter case where their standard says so: see the callers.
PLXNameValue const* FindNameValue(std::vector<PLXNameValue> const& list_i, std::string_view name_i,
                                  std::size_t index_i = 0, bool ignoreCase_i = false);

// One HTTP request as pages and modules see it: text only, whatever library read it from the network.
//
// Filled on the I/O thread, then owned by the one thread that answers it. Arguments and cookies are decoded
// and stand in the order in which they came.
struct PLXRequest {
  std::uint64_t id = 0;  // grows by one with every request of this process
  std::string method;    // "GET", "HEAD", "POST", ...
  std::string target;    // as sent
  std::string path;      // decoded, begins with "/", dot segments resolved
  std::string query;     // as sent, without "?"
  std::string version = "HTTP/1.1";
  std::string host;                         // a configured name, with ":port" unless that is 80
  std::vector<PLXNameValue> headers;        // as sent, in order
  std::vector<PLXNameValue> pathArguments;  // of the query
  std::vector<PLXNameValue> postArguments;  // of an urlencoded or multipart body; of a file, its name
  std::vector<PLXNameValue> cookies;
  std::string user;      // Basic credentials as sent, not verified
  std::string password;  // for modules alone: never logged, never a page value
  bool hasCredentials = false;
  std::string remoteAddress;  // of the client, behind a known proxy the one the proxy names
  std::uint16_t remotePort = 0;
  std::string peerAddress;  // of the socket
  std::uint16_t serverPort = 0;
  std::string serverAddress;  // the socket's own address
  bool isFromThisMachine =
      false;                  // the peer is one of this machine's addresses or a named proxy, unforwarded
  unsigned includeDepth = 0;  // how many pages of this server wait for this one
  std::uint64_t bodyBytes = 0;

  std::string_view Header(std::string_view name_i) const;  // the first of that name, "" without one
};

// The answer to one request. Header values are checked when they are set, so nothing a module says can begin
// a header of its own.
struct PLXResponse {
  int status = 200;
  std::string reason;  // empty: the standard text of the status
  std::vector<PLXNameValue> headers;
  std::string body;
  // When a file is named, these bytes of it are sent in the body's place, from the I/O thread: a file behind
  // a login, whose password was checked on a page thread, needs no memory and holds no thread while it is
  // sent.
  std::filesystem::path file;
  std::uint64_t fileOffset = 0;
  std::uint64_t fileLength = 0;

  // Sets a header, replacing one of that name ("Set-Cookie" is added instead). False, and nothing changes,
  // when the name is no token or a byte of the value is CR, LF or NUL.
  bool SetHeader(std::string_view name_i, std::string_view value_i);
  bool HasHeader(std::string_view name_i) const;
  void RemoveHeader(std::string_view name_i);
};
