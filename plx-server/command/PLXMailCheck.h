#pragma once

#include <string>
#include <vector>

#include "PLXConfiguration.h"

// plxserver check, as far as it looks at mail servers: those that the regions' preferences name.

struct PLXNamedMailServer {
  std::string region;  // "SITE/REGION"
  std::string server;  // name or address, with ":port" unless it is 25
};

// Those of the regions whose pages may send mail. Empty, too, when the server never ran with this state
// folder. Throws PLXSQLError when the preferences cannot be read.
std::vector<PLXNamedMailServer> PLXNamedMailServers(PLXConfiguration const& configuration_i);

// Looks the name up, connects and waits for the greeting (RFC 5321, section 3.1), ten seconds at most for
// each but the look-up, and takes leave. Empty when all went well, else a sentence on what did not.
std::string PLXTryMailServer(std::string const& server_i);

// Sends a message to the address, and from it, out of a page in each of the regions, and waits for what comes
// of it. Returns an exit code; what came of it is told on standard output or standard error.
int PLXSendTestMail(PLXConfiguration const& configuration_i, std::vector<PLXNamedMailServer> const& servers_i,
                    std::string const& address_i);
