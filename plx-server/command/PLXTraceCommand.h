#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "PLXServer.h"

// plxserver trace: what the tags of a page ask of the server, as it happens, on standard output.
struct PLXTraceRequest {
  std::filesystem::path output;  // for the page; empty: it is not kept
  bool isJSON = false;           // an object a line
};

// Runs the page as PLXServer::Render does.
PLXResponse PLXTracePage(PLXServer& server_io, PLXTraceRequest const& request_i, std::string const& page_i,
                         std::vector<PLXNameValue> const& arguments_i, std::string const& site_i);
// Writes the page to where it is wanted; false when that fails.
bool PLXKeepTracedPage(PLXTraceRequest const& request_i, PLXResponse const& response_i);
