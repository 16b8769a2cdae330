#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

#include "PLXServer.h"
#include "PLXServerPages.h"

// What PLXServer's sources share among themselves.

// Whom an answer is for, from everybody on.
enum class PLXServer::Privacy {
  kOpen,
  kPersonal,  // for the visitor whose cookie, name or login it was made with: no cache keeps it
  kPassword   // made by a module that looked at the visitor's password: nothing foreign runs in it or frames
              // it
};

struct PLXServer::Generation {
  explicit Generation(PLXConfiguration configuration_i) : sites(std::move(configuration_i)) {}

  PLXConfiguration const& Configuration() const { return sites.Configuration(); }
  // Adds headers where the answer has none of that name: the region's, where it has one, then those that what
  // is shown asks for, then the server's. A name that the region mentions is the region's to say.
  void AddHeaders(PLXResponse& response_io, PLXRegion const* region_i,
                  Privacy privacy_i = Privacy::kOpen) const;

  PLXSites sites;
};

struct PLXServer::Plan {
  enum class What { kAnswer, kFile, kPage, kAction, kAdministration };

  void Refuse(int status_i, std::string_view sentence_i) {
    what = What::kAnswer;
    answer = ErrorPage(status_i, sentence_i);
  }

  std::shared_ptr<Generation const> generation;  // keeps site and region alive
  PLXSite const* site = nullptr;
  PLXRegion const* region = nullptr;
  What what = What::kAnswer;
  PLXResponse answer;                   // kAnswer
  struct stat state {};                 // of the file: kFile, kPage
  std::filesystem::path file;           // kFile, kPage; of an action the place its path names
  std::shared_ptr<PLXPage const> page;  // kPage, when it was at hand
  bool isDownload = false;              // kFile
  std::string action;                   // kAction
  std::string scriptName;               // the path, encoded; the same for every spelling of one path
  bool isIncluded = false;              // asked for by a page of this server that waits for it
};
