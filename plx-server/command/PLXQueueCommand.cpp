#include "PLXQueueCommand.h"

#include <algorithm>
#include <ctime>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <set>

#include "PLXCommandLine.h"
#include "PLXMailQueue.h"
#include "PLXProcess.h"
#include "PLXServer.h"

namespace fs = std::filesystem;

namespace {

constexpr char kAdministration[] = "<plxSendMail mode=\"admin\"></plxSendMail>";
constexpr std::size_t kColumn = 40;  // characters of a text in the list

// The list as it is now.
class Queue {
 public:
  explicit Queue(PLXConfiguration const& configuration_i)
      : mySites(configuration_i),
        myRecords({configuration_i.state, configuration_i.recordsSource, configuration_i.recordsUser,
                   configuration_i.recordsPassword}),
        myMessages(PLXMailQueue(myRecords, mySites).List()) {}

  std::vector<PLXQueuedMail> const& Messages() const { return myMessages; }
  PLXQueuedMail const* Find(std::string number_i) const {
    if (number_i.starts_with("msg")) number_i.erase(0, 3);
    auto const found = std::ranges::find(myMessages, number_i, &PLXQueuedMail::number);
    return found == myMessages.end() ? nullptr : &*found;
  }

 private:
  PLXSites mySites;
  PLXRecordEngine myRecords;
  std::vector<PLXQueuedMail> myMessages;
};

// Runs forms of the failed-mail administration in their regions. When it is destroyed, all mail has been sent
// or has failed again.
class Administration {
 public:
  explicit Administration(PLXConfiguration const& configuration_i)
      : myServer(std::make_unique<PLXServer>(configuration_i, std::vector<std::string>(),
                                             PLXServer::Use::kRender)) {
    std::vector<std::string> problems;
    if (!myServer->LoadModules(problems)) throw std::runtime_error(problems.front());
  }
  void Run(std::string const& region_i, std::vector<PLXNameValue> const& form_i = {}) {
    PLXResponse const response = myServer->RenderText(kAdministration, region_i, form_i);
    if (response.status >= 400) throw std::runtime_error("the module answered with an error.");
  }
  void Act(PLXQueuedMail const& mail_i, char const* action_i) {
    Run(mail_i.region, {{"plxSendMailAction", action_i},
                        {"plxSendMailConfirmation", "Yes"},
                        {"plxSendMailRecordID", std::to_string(mail_i.record)},
                        {"plxSendMailMessageID", mail_i.number}});
  }

 private:
  std::unique_ptr<PLXServer> myServer;
};

// What a process that ended in between left behind comes into the list when its administration is opened.
void Settle(PLXConfiguration const& configuration_i) {
  PLXSites const sites(configuration_i);
  std::vector<std::string> regions;
  std::error_code none;
  for (auto const& site : sites.All()) {
    for (auto const& region : site->Regions()) {
      auto const folder = region->DataFolder("FM.outbox");
      if (folder && !fs::is_empty(*folder, none) && !none) regions.push_back(region->Key());
    }
  }
  if (regions.empty()) return;
  Administration administration(configuration_i);
  for (std::string const& region : regions) administration.Run(region);
}

std::string Short(std::string text_i) {
  std::ranges::replace_if(
      text_i, [](unsigned char character) { return character < ' ' || character == 0x7F; }, ' ');
  if (text_i.size() <= kColumn) return text_i;
  text_i.resize(kColumn - 3);
  while (!text_i.empty() && (static_cast<unsigned char>(text_i.back()) & 0xC0) == 0x80) text_i.pop_back();
  return text_i + "...";
}

std::string TimeText(std::time_t time_i) {
  if (time_i == 0) return "-";
  char text[32];
  tm broken{};
  ::localtime_r(&time_i, &broken);
  return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &broken)};
}

// The messages that are meant. Those that are not there are told, and the code says so.
std::vector<PLXQueuedMail> Select(Queue const& queue_i, PLXQueueRequest const& request_i, int& code_o) {
  code_o = kExitGood;
  if (request_i.isAll) return queue_i.Messages();
  std::vector<PLXQueuedMail> chosen;
  if (request_i.numbers.empty()) {
    code_o = PLXFail(kExitUsage, "name messages, as \"plxserver queue list\" shows them, or say --all.");
  }
  for (std::string const& number : request_i.numbers) {
    if (PLXQueuedMail const* const mail = queue_i.Find(number)) {
      chosen.push_back(*mail);
    } else {
      code_o =
          PLXFail(kExitUsage, "there is no message \"" + number +
                                  "\" any more, or there never was. \"plxserver queue list\" shows all.");
    }
  }
  return chosen;
}

// Does something with each message that is meant and has a text.
int ForEachText(PLXConfiguration const& configuration_i, PLXQueueRequest const& request_i,
                std::function<int(PLXQueuedMail const&)> const& work_i) {
  Settle(configuration_i);
  Queue const queue(configuration_i);
  int code = kExitGood;
  for (PLXQueuedMail const& mail : Select(queue, request_i, code)) {
    int const result =
        mail.region.empty()
            ? PLXFail(kExitInputOutput, mail.number + ": its text is in no region of this server.")
            : work_i(mail);
    if (result != kExitGood) code = result;
  }
  return code;
}

}  // namespace

int PLXQueueList(PLXConfiguration const& configuration_i, PLXQueueRequest const& request_i) {
  Settle(configuration_i);
  Queue const queue(configuration_i);
  if (request_i.isJSON) {
    std::cout << PLXMailAsJSON(queue.Messages()) << std::flush;
    return kExitGood;
  }
  if (queue.Messages().empty()) std::cerr << "No failed mail.\n";
  for (PLXQueuedMail const& mail : queue.Messages()) {
    std::cout << mail.number << "  " << TimeText(mail.stored) << "  " << mail.attempts
              << (mail.attempts == 1 ? " try" : " tries") << "  " << Short(mail.to) << "  \""
              << Short(mail.subject) << "\"\n    " << (mail.region.empty() ? "text lost" : mail.region)
              << ", " << mail.size << " bytes, from " << Short(mail.from) << " by " << Short(mail.server)
              << ": " << mail.reason << "\n";
  }
  return kExitGood;
}

int PLXQueueShow(PLXConfiguration const& configuration_i, PLXQueueRequest const& request_i) {
  if (request_i.isJSON) {
    Settle(configuration_i);
    Queue const queue(configuration_i);
    int code = kExitGood;
    std::cout << PLXMailAsJSON(Select(queue, request_i, code)) << std::flush;
    return code;
  }
  return ForEachText(configuration_i, request_i, [](PLXQueuedMail const& mail) {
    auto const text = PLXMailQueue::ReadText(mail);
    if (!text) return PLXFail(kExitInputOutput, mail.file.string() + " cannot be read.");
    std::cout << "X-PLX-Message: " << mail.number << " (" << mail.region << ", tries " << mail.attempts
              << ", server " << mail.server << ")\nX-PLX-Reason: " << mail.reason << "\n"
              << *text << std::flush;
    return static_cast<int>(kExitGood);
  });
}

int PLXQueueResend(PLXConfiguration const& configuration_i, PLXQueueRequest const& request_i) {
  std::vector<PLXQueuedMail> sent;
  int code = kExitGood;
  {
    std::unique_ptr<Administration> administration;
    code = ForEachText(configuration_i, request_i, [&](PLXQueuedMail const& mail) {
      if (!administration) administration = std::make_unique<Administration>(configuration_i);
      administration->Act(mail, "Send");
      sent.push_back(mail);
      return static_cast<int>(kExitGood);
    });
  }
  // Where no server runs that took the reports, they wait in the outbox.
  Settle(configuration_i);
  Queue const queue(configuration_i);
  for (PLXQueuedMail const& mail : sent) {
    if (PLXQueuedMail const* const left = queue.Find(mail.number)) {
      code = PLXFail(kExitLater, mail.number + " failed again: " + left->reason);
    } else {
      std::cout << mail.number << " is sent.\n";
    }
  }
  return code;
}

int PLXQueueDelete(PLXConfiguration const& configuration_i, PLXQueueRequest const& request_i) {
  Settle(configuration_i);
  Queue const queue(configuration_i);
  int code = kExitGood;
  std::vector<PLXQueuedMail> messages = Select(queue, request_i, code);
  if (messages.empty()) return code;
  Administration administration(configuration_i);
  PLXSites const sites(configuration_i);
  for (PLXQueuedMail& mail : messages) {
    if (mail.region.empty()) mail.region = sites.First().Regions().front()->Key();  // any will do
    administration.Act(mail, "DeleteMessage");
    std::cout << mail.number << " is deleted.\n";
  }
  return code;
}

int PLXQueueExport(PLXConfiguration const& configuration_i, PLXQueueRequest const& request_i) {
  std::error_code error;
  fs::create_directories(request_i.folder, error);
  if (!fs::is_directory(request_i.folder)) {
    return PLXFail(kExitCannotCreate, request_i.folder.string() + ": the folder cannot be made.");
  }
  return ForEachText(configuration_i, request_i, [&](PLXQueuedMail const& mail) {
    auto const text = PLXMailQueue::ReadText(mail);
    if (!text) return PLXFail(kExitInputOutput, mail.file.string() + " cannot be read.");
    fs::path const file = request_i.folder / (mail.number + ".eml");
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream << *text;
    stream.close();
    if (!stream) return PLXFail(kExitInputOutput, file.string() + " cannot be written.");
    std::cout << file.string() << "\n";
    return static_cast<int>(kExitGood);
  });
}
