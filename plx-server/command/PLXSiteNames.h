#pragma once

#include <string>
#include <vector>

#include "PLXConfiguration.h"

// plxserver check, as far as it looks at the sites' names. Pages that include pages of their own site, and
// outcomes of mail, ask this server under the name that the visitor used and the port it listens on; behind
// a proxy that name commonly leads to the outside, where nothing listens on that port.

// A sentence on each name that does not lead to where this server listens, as this machine looks it up.
// Empty when all do. Takes as long as the look-ups.
std::vector<std::string> PLXSiteNameWarnings(PLXConfiguration const& configuration_i);
