#include "PLXMailQueue.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <sys/stat.h>

#include "PLXJSONText.h"

namespace fs = std::filesystem;

namespace {

constexpr char kDatabase[] = "__PLXDB__SendMail_Log__";
constexpr char kFolder[] = "FM";
constexpr char kOutbox[] = "FM.outbox";
constexpr char kNamePrefix[] = "msg";
constexpr int kDayNumberOf1970 = 2440587;

std::string AsText(PLXSQLValue const& value_i) {
  if (auto const* const text = std::get_if<std::string>(&value_i)) return *text;
  if (auto const* const integer = std::get_if<std::int64_t>(&value_i)) return std::to_string(*integer);
  if (auto const* const number = std::get_if<double>(&value_i)) {
    return std::to_string(static_cast<std::int64_t>(*number));
  }
  return {};
}

std::int64_t AsInteger(PLXSQLValue const& value_i) {
  std::int64_t integer = 0;
  return PLXRecordInteger(value_i, integer) ? integer : 0;
}

// A message's number is the day number on which it was handed over, by the local clock and from midnight on,
// without its point.
std::time_t TimeOfNumber(std::string const& number_i) {
  constexpr std::size_t kDayDigits = 7;
  bool const isDay = number_i.size() >= kDayDigits && number_i.size() < 40 &&
                     number_i.find_first_not_of("0123456789") == std::string::npos;
  if (!isDay) return 0;
  std::tm parts{};
  parts.tm_year = 70;
  parts.tm_mday = 1 + std::stoi(number_i.substr(0, kDayDigits)) - kDayNumberOf1970;
  parts.tm_sec = static_cast<int>(std::lround(std::stod("0." + number_i.substr(kDayDigits)) * 86400));
  parts.tm_isdst = -1;
  return std::max<std::time_t>(0, std::mktime(&parts));
}

std::uint64_t CountMessages(fs::path const& folder_i) {
  std::uint64_t count = 0;
  std::error_code error;
  for (fs::directory_iterator at(folder_i, error), end; !error && at != end; at.increment(error)) {
    if (at->path().filename().native().starts_with(kNamePrefix)) ++count;
  }
  return count;
}

}  // namespace

std::unique_ptr<PLXRecordCursor> PLXMailQueue::Open() const {
  auto const store = myRecords.Store();
  auto const names = store->Names();
  if (std::find(names.begin(), names.end(), kDatabase) == names.end()) return nullptr;
  auto cursor = std::make_unique<PLXRecordCursor>(store, kDatabase, PLXRecordAccess::kShared, nullptr,
                                                  PLXRecordCursor::WhenMissing::kFail);
  if (!cursor->HasField("Message ID")) return nullptr;  // it is just being made
  return cursor;
}

PLXMailQueue::Summary PLXMailQueue::Summarize() const {
  Summary summary;
  for (auto const& site : mySites.All()) {
    for (auto const& region : site->Regions()) {
      if (auto const folder = region->DataFolder(kOutbox)) summary.underway += CountMessages(*folder);
    }
  }
  auto const cursor = Open();
  if (!cursor) return summary;
  summary.failed = cursor->RecordCount();
  if (summary.failed == 0) return summary;
  try {
    summary.oldest = TimeOfNumber(AsText(cursor->Get("Message ID")));
  } catch (PLXRecordError const& error) {
    if (error.GetKind() != PLXRecordError::Kind::kEnd) throw;  // it was sent meanwhile
  }
  return summary;
}

std::vector<PLXQueuedMail> PLXMailQueue::List() const {
  std::vector<PLXQueuedMail> messages;
  auto const list = Open();
  if (!list) return messages;
  PLXRecordCursor& cursor = *list;
  for (std::uint64_t left = cursor.RecordCount(); left > 0; --left) {
    PLXQueuedMail mail;
    mail.record = AsInteger(cursor.Get("PLXIDFIELD"));
    mail.number = AsText(cursor.Get("Message ID"));
    mail.attempts = AsInteger(cursor.Get("Attempts"));
    mail.server = AsText(cursor.Get("SMTP Server"));
    mail.from = AsText(cursor.Get("From"));
    mail.replyTo = AsText(cursor.Get("ReplyTo"));
    mail.to = AsText(cursor.Get("To"));
    mail.cc = AsText(cursor.Get("CC"));
    mail.bcc = AsText(cursor.Get("BCC"));
    mail.subject = AsText(cursor.Get("Subject"));
    mail.reason = AsText(cursor.Get("Info"));
    FindText(mail);
    messages.push_back(std::move(mail));
    if (left == 1) break;
    try {
      cursor.MoveNext();
    } catch (PLXRecordError const& error) {
      if (error.GetKind() != PLXRecordError::Kind::kEnd) throw;
      break;  // some were sent meanwhile
    }
  }
  return messages;
}

void PLXMailQueue::FindText(PLXQueuedMail& mail_io) const {
  for (auto const& site : mySites.All()) {
    for (auto const& region : site->Regions()) {
      auto const folder = region->DataFolder(kFolder);
      if (!folder) continue;
      fs::path const file = *folder / (kNamePrefix + mail_io.number);
      struct stat status {};
      if (::stat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
      mail_io.region = region->Key();
      mail_io.file = file;
      mail_io.size = static_cast<std::uint64_t>(status.st_size);
      mail_io.stored = status.st_mtime;
      return;
    }
  }
}

std::optional<std::string> PLXMailQueue::ReadText(PLXQueuedMail const& mail_i) {
  std::ifstream stream(mail_i.file, std::ios::binary);
  if (!stream) return std::nullopt;
  std::string text, line;
  text.reserve(mail_i.size + mail_i.size / 32);
  while (std::getline(stream, line) && line != ".") {
    text.append(line, line.starts_with('.') ? 1 : 0, line.npos).append("\r\n");
  }
  return text;
}

std::string PLXMailAsJSON(std::vector<PLXQueuedMail> const& messages_i) {
  std::string json = "[";
  for (PLXQueuedMail const& mail : messages_i) {
    struct Row {
      char const* name;
      std::string const& value;
    };
    json.append(json.size() > 1 ? ",\n {" : "\n {");
    for (Row const& row : {Row{"id", mail.number}, Row{"region", mail.region}, Row{"server", mail.server},
                           Row{"from", mail.from}, Row{"replyTo", mail.replyTo}, Row{"to", mail.to},
                           Row{"cc", mail.cc}, Row{"bcc", mail.bcc}, Row{"subject", mail.subject},
                           Row{"reason", mail.reason}, Row{"file", mail.file.native()}}) {
      json.append(PLXJSONText(row.name)).append(": ").append(PLXJSONText(row.value)).append(", ");
    }
    json.append("\"attempts\": ").append(std::to_string(mail.attempts));
    json.append(", \"bytes\": ").append(std::to_string(mail.size));
    json.append(", \"stored\": ").append(std::to_string(mail.stored)).append("}");
  }
  return json + (messages_i.empty() ? "]\n" : "\n]\n");
}
