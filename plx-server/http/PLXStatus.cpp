#include "PLXStatus.h"

#include <algorithm>
#include <fstream>
#include <unistd.h>

#include "PLXAdministrationHTML.h"

// The figures whose names begin with "plx_" are those of the network module, which counts mail, includes and
// collections; whatever other modules count is in the metrics alone.

namespace {

constexpr auto kMailIsFresh = std::chrono::seconds(2);
constexpr std::size_t kMailboxesMost = 200;  // on the page

// Memory in use (bytes) and threads of this process; zero where the system does not tell.
struct ProcessFigures {
  unsigned long long memory = 0;
  unsigned long threads = 0;
};

ProcessFigures ReadProcessFigures() {
  ProcessFigures figures;
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == "VmRSS:") {
      status >> figures.memory;
      figures.memory *= 1024;
    } else if (word == "Threads:") {
      status >> figures.threads;
    }
  }
  return figures;
}

// "3 d 4 h 5 min" or "12 s": for reading, so the two or three largest parts are enough.
std::string Duration(std::int64_t seconds_i) {
  if (seconds_i < 60) return std::to_string(seconds_i) + " s";
  std::string text;
  if (seconds_i >= 86400) text += std::to_string(seconds_i / 86400) + " d ";
  if (seconds_i >= 3600) text += std::to_string(seconds_i / 3600 % 24) + " h ";
  return text + std::to_string(seconds_i / 60 % 60) + " min";
}

std::string LocalTime(std::time_t time_i) {
  std::tm parts{};
  localtime_r(&time_i, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  return text;
}

std::string Count(double number_i) {
  return std::to_string(static_cast<std::uint64_t>(std::max(0.0, number_i)));
}

std::string Bytes(double bytes_i) {
  if (bytes_i < 10000) return Count(bytes_i) + " bytes";
  if (bytes_i < 10e6) return Count(bytes_i / 1e3) + " kB";
  return Count(bytes_i / 1e6) + " MB";
}

std::string Average(double seconds_i, double count_i) {
  double const milliseconds = count_i <= 0 ? 0 : seconds_i * 1000 / count_i;
  return milliseconds < 1 ? "under 1 ms" : Count(milliseconds + 0.5) + " ms";
}

std::string Label(PLXFigures::Series const& series_i, std::string const& name_i) {
  auto const found = series_i.labels.find(name_i);
  return found == series_i.labels.end() ? std::string() : found->second;
}

std::string Paragraph(std::string_view text_i) { return "<p>" + EncodeHTML(text_i) + "</p>\n"; }

void AppendPages(PLXListenerStatus const& status_i, PLXRequestCounts const& counts_i,
                 PLXFigureText& text_io) {
  text_io.AddOnly("plxserver_requests_total", "Requests that were read.",
                  static_cast<double>(status_i.requests));
  text_io.Begin("plxserver_answers_total", "Answers by the class of their status.");
  for (std::size_t digit = 1; digit < counts_i.answers.size(); ++digit) {
    text_io.Add("status=\"" + std::to_string(digit) + "xx\"", static_cast<double>(counts_i.answers[digit]));
  }
  text_io.AddOnly("plxserver_connections", "Connections that are open.", status_i.connections);
  text_io.AddOnly("plxserver_pages_running", "Page threads that run a page.", status_i.busyPageThreads);
  text_io.AddOnly("plxserver_page_threads_idle", "Page threads that were made and have nothing to do.",
                  status_i.idlePageThreads);
  text_io.AddOnly("plxserver_pages_waiting", "Pages that wait for a thread.", status_i.waitingPages);
  text_io.AddOnly("plxserver_pages_given_up", "Pages that were given up and still hold a thread.",
                  status_i.overduePages);
  text_io.AddOnly("plxserver_pages_given_up_total", "Pages that did not end in time.",
                  static_cast<double>(counts_i.givenUp));
}

void AppendLimits(PLXLimits const& limits_i, PLXFigureText& text_io) {
  text_io.AddOnly("plxserver_connections_limit", "The key \"connections\".", limits_i.connections);
  text_io.AddOnly("plxserver_page_threads_limit", "The key \"page-threads\".", limits_i.pageThreads);
  text_io.AddOnly("plxserver_pages_waiting_limit", "The key \"waiting-pages\".", limits_i.waitingPages);
}

}  // namespace

PLXStatus::PLXStatus(PLXModuleHost const& modules_i, PLXRecordEngine& records_i,
                     PLXRequestCounts const& counts_i, std::function<PLXListenerStatus()> listener_i)
    : myModules(modules_i),
      myFigures(modules_i.Figures()),
      myRecords(records_i),
      myCounts(counts_i),
      myListener(std::move(listener_i)) {}

// One thread reads, because a data source that hangs must not take all threads of the administration; the
// others show what was seen last.
PLXStatus::Mail PLXStatus::ReadMail(PLXSites const& sites_i) {
  std::unique_lock const reading(myReading, std::try_to_lock);
  auto const now = std::chrono::steady_clock::now();
  {
    std::lock_guard const lock(myMutex);
    bool const isFresh = myMail.summary && now - myMail.read < kMailIsFresh;
    if (!reading.owns_lock() || isFresh) return myMail;
  }
  Mail mail;
  mail.read = now;
  try {
    mail.summary = PLXMailQueue(myRecords, sites_i).Summarize();
  } catch (PLXRecordError const& error) {
    mail.problem = error.what();
  }
  std::lock_guard const lock(myMutex);
  myMail = mail;
  return mail;
}

// ---- For monitoring systems ------------------------------------------------------------------------------

std::string PLXStatus::Metrics(PLXSites const& sites_i) {
  PLXFigureText text;
  ProcessFigures const process = ReadProcessFigures();
  std::chrono::duration<double> const uptime = std::chrono::steady_clock::now() - myStart;
  text.Begin("plxserver_build_info", "The version that runs.");
  text.Add("version=\"" + PLXEscapedLabel(PLX_SERVER_VERSION) + "\"", 1);
  text.AddOnly("plxserver_start_time_seconds", "When the server started, since 1970.",
               static_cast<double>(myStartTime));
  text.AddOnly("plxserver_uptime_seconds", "How long the server runs.", uptime.count());
  AppendPages(myListener(), myCounts, text);
  AppendLimits(sites_i.Configuration().limits, text);
  PLXSQLPool::Waits const waits = PLXSQLPool::GetWaits();
  text.AddOnly("plxserver_database_waits_total", "Operations that had to wait for a database connection.",
               static_cast<double>(waits.count));
  text.AddOnly("plxserver_database_wait_seconds_total", "How long these have waited together.",
               std::chrono::duration<double>(waits.time).count());
  text.AddOnly("plxserver_threads", "Threads of the process.", static_cast<double>(process.threads));
  text.AddOnly("plxserver_memory_bytes", "Memory of the process.", static_cast<double>(process.memory));
  if (auto const mail = ReadMail(sites_i).summary) {
    auto const age = mail->oldest == 0 ? 0 : std::max<std::time_t>(0, std::time(nullptr) - mail->oldest);
    text.AddOnly("plxserver_mail_failed", "Messages in the list of failed mail.",
                 static_cast<double>(mail->failed));
    text.AddOnly("plxserver_mail_failed_oldest_seconds", "Age of the first of them; 0 without any.",
                 static_cast<double>(age));
    text.AddOnly("plxserver_mail_outbox", "Messages on their way, or left by a server that died.",
                 static_cast<double>(mail->underway));
  }
  myFigures.AppendTo(text);
  return text.Text();
}

// ---- For people ------------------------------------------------------------------------------------------

// Why there is nothing to show of what a module counts: it may not be there at all.
std::string PLXStatus::NothingYet(std::string_view figure_i, std::string_view sentence_i) const {
  if (!myFigures.Has(figure_i)) {
    return Paragraph("No loaded module counts this. The network module does; the key \"modules\" names it.");
  }
  return Paragraph(std::string(sentence_i) + " since " + LocalTime(myStartTime) +
                   ", when the server started.");
}

std::string PLXStatus::Page(PLXSites const& sites_i) {
  return "<p class=\"quiet\">As of " + LocalTime(std::time(nullptr)) + ", counted since the start on " +
         LocalTime(myStartTime) +
         ". This page is asked for again every 5 seconds; <a href=\"/plx-admin/metrics\">monitoring systems "
         "read the same figures</a>.</p>\n<h2>Mail</h2>\n" +
         MailPart(sites_i) + "<h2>Includes</h2>\n" + IncludesPart() + "<h2>Collections</h2>\n" +
         CollectionsPart() + "<h2>Server</h2>\n" + ServerPart(sites_i);
}

std::string PLXStatus::MailPart(PLXSites const& sites_i) {
  double const sent = myFigures.Sum("plx_mail_sent_total");
  double const failed = myFigures.Sum("plx_mail_failed_total");
  std::string const since = sent + failed == 0 ? NothingYet("plx_mail_sent_total", "No mail has been sent")
                            : failed == 0      ? NothingYet("plx_mail_failed_total", "No mail has failed")
                                               : "";
  std::string pairs;
  if (sent + failed > 0) {
    pairs += Pair("Sent", Count(sent) + " (" + Bytes(myFigures.Sum("plx_mail_sent_bytes_total")) + ")") +
             Pair("Failed attempts", Count(failed)) +
             Pair("Time for one", Average(myFigures.Sum("plx_mail_seconds_total"), sent + failed));
  }
  Mail const mail = ReadMail(sites_i);
  if (!mail.summary) {
    return since + "<dl>\n" + pairs + "</dl>\n" +
           Paragraph(mail.problem.empty() ? "The list of failed mail is being read."
                                          : "The list of failed mail cannot be read: " + mail.problem);
  }
  pairs += Pair("On its way", std::to_string(mail.summary->underway)) +
           Pair("In the list of failed mail", std::to_string(mail.summary->failed));
  if (mail.summary->oldest != 0) {
    auto const age = std::max<std::time_t>(0, std::time(nullptr) - mail.summary->oldest);
    pairs += Pair("Oldest of these", LocalTime(mail.summary->oldest) + ", " + Duration(age) + " ago");
  }
  std::string part = since + "<dl>\n" + pairs + "</dl>\n";
  if (mail.summary->failed > 0) {
    part +=
        "<p>Look at it with <code>plxserver queue list</code> or on the site's page of failed mail; "
        "<a href=\"/plx-admin/log?text=mail+failed\">the log</a> says why each failed.</p>\n";
  }
  return part;
}

std::string PLXStatus::IncludesPart() const {
  auto const results = myFigures.List("plx_includes_total");
  double all = 0;
  for (PLXFigures::Series const& series : results) all += series.value;
  if (all == 0) return NothingYet("plx_includes_total", "No page has included an address");
  std::string part = "<dl>\n";
  for (PLXFigures::Series const& series : results) {
    std::string const status = Label(series, "status");
    part += Pair(status == "none" ? "Not answered" : "Answered " + status, Count(series.value));
  }
  return part + Pair("Read", Bytes(myFigures.Sum("plx_include_bytes_total"))) +
         Pair("Time for one", Average(myFigures.Sum("plx_include_seconds_total"), all)) + "</dl>\n";
}

std::string PLXStatus::CollectionsPart() const {
  double good = 0;
  double failed = 0;
  for (PLXFigures::Series const& series : myFigures.List("plx_collections_total")) {
    (Label(series, "result") == "ok" ? good : failed) += series.value;
  }
  if (good + failed == 0) return NothingYet("plx_collections_total", "No mailbox has been collected");
  std::string part = "<dl>\n" + Pair("Good", Count(good)) + Pair("Failed", Count(failed)) +
                     Pair("New messages", Count(myFigures.Sum("plx_collected_messages_total")) + " (" +
                                              Bytes(myFigures.Sum("plx_collected_bytes_total")) + ")") +
                     "</dl>\n";
  auto const mailboxes = myFigures.List("plx_collection_last_success_timestamp_seconds");
  if (mailboxes.empty()) return part + Paragraph("No mailbox could be collected yet.");
  part += TableHead("Mailboxes", {"User", "Server", "Last good collection"});
  for (std::size_t index = 0; index < std::min(mailboxes.size(), kMailboxesMost); ++index) {
    PLXFigures::Series const& mailbox = mailboxes[index];
    part += "<tr>" + Cell(Label(mailbox, "user")) + Cell(Label(mailbox, "server")) +
            Cell(LocalTime(static_cast<std::time_t>(mailbox.value))) + "</tr>\n";
  }
  part += kTableEnd;
  if (mailboxes.size() > kMailboxesMost) part += Paragraph("The metrics have all of them.");
  return part;
}

std::string PLXStatus::ServerPart(PLXSites const& sites_i) const {
  PLXListenerStatus const status = myListener();
  ProcessFigures const process = ReadProcessFigures();
  PLXConfiguration const& configuration = sites_i.Configuration();
  PLXSQLPool::Waits const waits = PLXSQLPool::GetWaits();
  auto const of = [](std::uint64_t count_i, unsigned limit_i) {
    return std::to_string(count_i) + " of " + std::to_string(limit_i);
  };
  auto const uptime =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - myStart);
  std::string answers;
  for (std::size_t digit = 2; digit < myCounts.answers.size(); ++digit) {
    answers +=
        (digit == 2 ? "" : ", ") + std::to_string(digit) + "xx " + std::to_string(myCounts.answers[digit]);
  }
  std::string part = "<dl>\n" + Pair("Running for", Duration(uptime.count())) +
                     Pair("Requests so far", std::to_string(status.requests)) + Pair("Answers", answers) +
                     Pair("Connections", of(status.connections, configuration.limits.connections)) +
                     Pair("Pages running", of(status.busyPageThreads, configuration.limits.pageThreads)) +
                     Pair("Pages waiting", of(status.waitingPages, configuration.limits.waitingPages)) +
                     Pair("Pages given up", of(status.overduePages, configuration.limits.overduePages) +
                                                " now, " + std::to_string(myCounts.givenUp) + " so far");
  std::string const waited = waits.count == 0
                                 ? "never"
                                 : std::to_string(waits.count) + " times, " +
                                       Count(std::chrono::duration<double, std::milli>(waits.time).count()) +
                                       " ms together";
  part +=
      Pair("Waited for a database connection", waited) + Pair("Threads", std::to_string(process.threads)) +
      Pair("Memory", std::to_string(process.memory >> 20) + " MB") +
      Pair("Process", std::to_string(::getpid())) +
      Pair("Configuration", configuration.file.empty() ? "the command line" : configuration.file.string()) +
      Pair("State", configuration.state.string()) +
      (configuration.shared.empty() ? "" : Pair("Shared with other servers", configuration.shared.string())) +
      Pair("PLX Server", PLX_SERVER_VERSION);
  for (PLXModuleDescription const& module : myModules.Describe()) part += Pair(module.name, module.version);
  return part + "</dl>\n";
}
