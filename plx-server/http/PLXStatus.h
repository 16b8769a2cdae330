#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "PLXListener.h"
#include "PLXMailQueue.h"
#include "PLXModuleHost.h"
#include "PLXSite.h"

// What became of the requests since the start. Any thread.
struct PLXRequestCounts {
  std::array<std::atomic<std::uint64_t>, 6> answers{};  // by the first digit of their status
  std::atomic<std::uint64_t> givenUp{0};                // pages that did not end in time

  void CountAnswer(int status_i) {
    if (status_i >= 100 && status_i < 600) ++answers[static_cast<std::size_t>(status_i / 100)];
  }
};

// What the server and its modules do and have done since the start, in words for people and as figures for
// monitoring systems, both from one reading. Any thread.
class PLXStatus {
 public:
  // All must outlive it. `listener_i` is asked on whatever thread reads.
  PLXStatus(PLXModuleHost const& modules_i, PLXRecordEngine& records_i, PLXRequestCounts const& counts_i,
            std::function<PLXListenerStatus()> listener_i);

  // The body of a page, HTML.
  std::string Page(PLXSites const& sites_i);
  // In the text format of PLXFigureText: the server's own, then the modules'.
  std::string Metrics(PLXSites const& sites_i);

 private:
  // The list of failed mail as it was seen last.
  struct Mail {
    std::optional<PLXMailQueue::Summary> summary;
    std::string problem;  // why there is none
    std::chrono::steady_clock::time_point read;
  };
  Mail ReadMail(PLXSites const& sites_i);
  std::string MailPart(PLXSites const& sites_i);
  std::string IncludesPart() const;
  std::string CollectionsPart() const;
  std::string ServerPart(PLXSites const& sites_i) const;
  std::string NothingYet(std::string_view figure_i, std::string_view sentence_i) const;

  PLXModuleHost const& myModules;
  PLXFigures const& myFigures;
  PLXRecordEngine& myRecords;
  PLXRequestCounts const& myCounts;
  std::function<PLXListenerStatus()> const myListener;
  std::time_t const myStartTime = std::time(nullptr);
  std::chrono::steady_clock::time_point const myStart = std::chrono::steady_clock::now();
  std::mutex myReading;  // held by the one that reads the list of failed mail
  std::mutex myMutex;    // guards myMail
  Mail myMail;
};
