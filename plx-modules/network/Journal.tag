// What the module tells the operator: a line of the server's log for every message, include and collection,
// and figures for monitoring systems.
//
// All of it goes through the service handle, which a server offers with 'MSvH' and which is good on the
// threads that send mail, too. Without one nothing is told and nothing is asked. Nothing here throws or
// changes what a tag answers.

#pragma once

#include <atomic>
#include <charconv>
#include <chrono>
#include <ctime>
#include <string_view>

#include "PLXEmailSendThread.h"
#include "PLXHTTP.h"
#include "PLXModuleAPIGlue.h"
#include "PLXPOP3.h"
#include "PLXStringUtility.h"
#include "PLXTokenizedString.h"

static constexpr PLXUInt32 kJournal_LongestValue = 1000;  // bytes of a value in the log

// The record that came with 'MSvH'. Written before the flag is set, and read only while it is.
static _PLXAPI_ModuleProcessingInfo ourJournalService;
static std::atomic<bool> ourJournalIsOpen{false};

// Null while there is nobody to tell.
static _PLXAPI_ModuleProcessingInfo* Journal_GetService() noexcept {
  return ourJournalIsOpen.load(std::memory_order_acquire) ? &ourJournalService : nullptr;
}

using Journal_Time = std::chrono::steady_clock::time_point;

static double Journal_GetSeconds(Journal_Time start_i) noexcept {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_i).count();
}

static std::uint64_t Journal_GetMilliseconds(double seconds_i) noexcept {
  return static_cast<std::uint64_t>(seconds_i * 1000);
}

// ---- Lines of the log ----

// "what name=value name=value": values stand in quotes where they are empty or hold a blank, a quote or a
// backslash, the last two with a backslash before them. Control characters are the server's to escape.
class Journal_Line {
 public:
  explicit Journal_Line(char const* what_i) : myText(what_i) {}

  Journal_Line& Add(char const* name_i, PLXString const& value_i) {
    std::string_view value(value_i.GetCStringAccess(), value_i.GetLength());
    bool const isCut = value.size() > kJournal_LongestValue;
    if (isCut) value = value.substr(0, kJournal_LongestValue);
    bool const isQuoted = value.empty() || value.find_first_of(" \"\\") != std::string_view::npos;
    Begin(name_i, static_cast<PLXUInt32>(value.size()));
    if (isQuoted) myText += '"';
    for (char const character : value) {
      if (character == '"' || character == '\\') myText += '\\';
      // The log takes no zero.
      myText += character == 0 ? '?' : character;
    }
    if (isCut) myText += "...";
    if (isQuoted) myText += '"';
    return *this;
  }

  Journal_Line& Add(char const* name_i, std::uint64_t value_i) {
    char digits[20];
    auto const end = std::to_chars(digits, digits + sizeof digits, value_i);
    Begin(name_i, sizeof digits);
    myText.Append(digits, static_cast<PLXUInt32>(end.ptr - digits));
    return *this;
  }

  PLXString const& GetText() const noexcept { return myText; }

 private:
  void Begin(char const* name_i, PLXUInt32 length_i) {
    myText.ReserveToAppend(length_i + 32);
    myText.Append(' ').Append(name_i).Append('=');
  }

  PLXString myText;
};

// ---- Figures ----

PLX_STRING_CONSTANT(kJournal_MailSent, "plx_mail_sent_total");
PLX_STRING_CONSTANT(kJournal_MailSentBytes, "plx_mail_sent_bytes_total");
PLX_STRING_CONSTANT(kJournal_MailFailed, "plx_mail_failed_total");
PLX_STRING_CONSTANT(kJournal_MailSeconds, "plx_mail_seconds_total");
PLX_STRING_CONSTANT(kJournal_MailUnderway, "plx_mail_underway");
PLX_STRING_CONSTANT(kJournal_Includes, "plx_includes_total");
PLX_STRING_CONSTANT(kJournal_IncludeBytes, "plx_include_bytes_total");
PLX_STRING_CONSTANT(kJournal_IncludeSeconds, "plx_include_seconds_total");
PLX_STRING_CONSTANT(kJournal_Collections, "plx_collections_total");
PLX_STRING_CONSTANT(kJournal_CollectionsGood, "plx_collections_total{result=\"ok\"}");
PLX_STRING_CONSTANT(kJournal_CollectionsFailed, "plx_collections_total{result=\"failed\"}");
PLX_STRING_CONSTANT(kJournal_CollectedMessages, "plx_collected_messages_total");
PLX_STRING_CONSTANT(kJournal_CollectedBytes, "plx_collected_bytes_total");
PLX_STRING_CONSTANT(kJournal_CollectionSeconds, "plx_collection_seconds_total");
PLX_STRING_CONSTANT(kJournal_LastCollection, "plx_collection_last_success_timestamp_seconds");

// The meanings, and a first value where there are no labels: a figure that is there before anything happened
// shows its first step.
static void Journal_DescribeFigures(_PLXAPI_ModuleProcessingInfo* service_i) {
  struct Row {
    PLXString const& name;
    char const* meaning;
    bool hasLabels;
  };
  Row const rows[] = {
      {kJournal_MailSent, "Messages that their mail server took.", false},
      {kJournal_MailSentBytes, "Bytes of these.", false},
      {kJournal_MailFailed, "Attempts to send a message that failed.", false},
      {kJournal_MailSeconds, "Time of dialogues with mail servers.", false},
      {kJournal_MailUnderway, "Messages that are being sent now.", false},
      {kJournal_Includes, "Included addresses by the status of their answer, \"none\" without one.", true},
      {kJournal_IncludeBytes, "Bytes that included addresses answered.", false},
      {kJournal_IncludeSeconds, "Time of these.", false},
      {kJournal_Collections, "Collections of mailboxes by their result.", true},
      {kJournal_CollectedMessages, "New messages of these.", false},
      {kJournal_CollectedBytes, "Bytes that mailboxes gave.", false},
      {kJournal_CollectionSeconds, "Time of collections.", false},
      {kJournal_LastCollection, "When a mailbox was last collected well, since 1970.", true}};
  for (Row const& row : rows) {
    PLXGlueDescribeFigure(service_i, row.name, row.meaning);
    if (!row.hasLabels) PLXGlueAddToFigure(service_i, row.name, 0);
  }
}

// ---- Mail ----

static PLXString Journal_GetRecipients(PLXEmailFields const& fields_i) {
  PLXString recipients;
  for (PLXString const* list : {&fields_i.to, &fields_i.cc, &fields_i.bcc}) {
    if (list->IsEmpty()) continue;
    if (recipients.IsNotEmpty()) recipients += kRecipientListDelimiter;
    recipients += *list;
  }
  return recipients;
}

static void Journal_TellMail(_PLXAPI_ModuleProcessingInfo* service_i, PLXEmailOutcome const& outcome_i) {
  static constexpr char const* kWhat[] = {"mail sent", "mail failed", "mail kept", "mail lost"};
  bool const isSent = outcome_i.status == PLXEmailOutcome::kSent;
  PLXString const recipients = Journal_GetRecipients(outcome_i.fields);
  PLXUInt32 const count = PLXTokenizedString(recipients, kRecipientListDelimiter).GetTokenCount();
  Journal_Line line(kWhat[outcome_i.status]);
  line.Add("server", outcome_i.fields.mailServer).Add("from", outcome_i.fields.from);
  line.Add("recipients", count).Add("to", recipients).Add("bytes", outcome_i.size);
  line.Add("attempts", outcome_i.fields.attempt).Add("ms", outcome_i.milliseconds);
  line.Add("page", outcome_i.fields.origin).Add("message", outcome_i.name);
  if (isSent) {
    PLXGlueAddNoteToServerLog(service_i, line.GetText());
    PLXGlueAddToFigure(service_i, kJournal_MailSent, 1);
    PLXGlueAddToFigure(service_i, kJournal_MailSentBytes, outcome_i.size);
  } else {
    line.Add("reason", outcome_i.reason.IsEmpty() ? PLXString("the attempt ended early") : outcome_i.reason);
    if (outcome_i.status == PLXEmailOutcome::kFailed) {
      PLXGlueAddWarningToServerLog(service_i, line.GetText());
    } else {
      PLXGlueAddErrorToServerLog(service_i, line.GetText());
    }
    PLXGlueAddToFigure(service_i, kJournal_MailFailed, 1);
  }
  PLXGlueAddToFigure(service_i, kJournal_MailSeconds, outcome_i.milliseconds / 1000.0);
}

// On the threads that send mail.
class Journal_MailObserver final : public PLXEmailObserver {
 public:
  void Begin() noexcept override { Count(1); }
  void End(PLXEmailOutcome const& outcome_i) noexcept override {
    try {
      if (auto* const service = Journal_GetService()) Journal_TellMail(service, outcome_i);
    } catch (...) {
    }
    Count(-1);
  }

 private:
  static void Count(double change_i) noexcept {
    try {
      if (auto* const service = Journal_GetService()) {
        PLXGlueAddToFigure(service, kJournal_MailUnderway, change_i);
      }
    } catch (...) {
    }
  }
};

// ---- Includes ----

// Without what only the two ends are to know: a user and a password before the host, and the query.
static PLXString Journal_GetPublicURL(PLXString const& url_i) {
  std::string_view url(url_i.GetCStringAccess(), url_i.GetLength());
  url = url.substr(0, url.find_first_of("?#"));
  std::size_t const scheme = url.find("://");
  std::size_t const host = scheme == std::string_view::npos ? 0 : scheme + 3;
  std::string_view const authority = url.substr(host, url.find('/', host) - host);
  std::size_t const user = authority.rfind('@');
  PLXString text(url.data(), static_cast<PLXUInt32>(host));
  if (user != std::string_view::npos) url.remove_prefix(user + 1);
  return text.Append(url.data() + host, static_cast<PLXUInt32>(url.size() - host));
}

static void Journal_TellInclude(PLXHTTP const& http_i, PLXString const& url_i, PLXString const& page_i,
                                Journal_Time start_i) noexcept {
  try {
    auto* const service = Journal_GetService();
    if (service == nullptr) return;
    double const seconds = Journal_GetSeconds(start_i);
    bool const isAnswered = *http_i.GetProblem() == 0;
    PLXUInt32 const status = isAnswered ? http_i.GetStatus() : 0;
    PLXUInt32 const size = http_i.GetResponseData().GetLength();
    Journal_Line line(isAnswered ? "include" : "include failed");
    line.Add("url", Journal_GetPublicURL(url_i)).Add("status", status).Add("bytes", size);
    line.Add("ms", Journal_GetMilliseconds(seconds)).Add("page", page_i);
    if (isAnswered) {
      PLXGlueAddNoteToServerLog(service, line.GetText());
    } else {
      line.Add("reason", PLXString(http_i.GetProblem()));
      PLXGlueAddWarningToServerLog(service, line.GetText());
    }
    bool const isStatus = status >= 100 && status < 600;
    PLXString const label = PLXGlueGetFigureLabel(
        "status", isStatus ? PLXStringUtility::GetStringRepresentation(status) : PLXString("none"));
    PLXGlueAddToFigure(service, kJournal_Includes + "{" + label + "}", 1);
    PLXGlueAddToFigure(service, kJournal_IncludeBytes, size);
    PLXGlueAddToFigure(service, kJournal_IncludeSeconds, seconds);
  } catch (...) {
  }
}

// ---- Collections ----

// Why nobody could log in.
static char const* Journal_GetReason(PLXPOP3 const& client_i, PLXUInt32 result_i) noexcept {
  switch (result_i) {
    case kPOP3Result_InvalidPassword:
      return "The password was refused";
    case kPOP3Result_UnknownUser:
      return "The user was refused";
    default:
      return client_i.GetConnectProblem();
  }
}

// One collection of a mailbox, told when it goes.
class Journal_Collection {
 public:
  Journal_Collection(_PLXAPI_ModuleProcessingInfo* info_i, char const* tag_i, PLXString const& server_i,
                     PLXString const& user_i)
      : myInfo(info_i), myTag(tag_i), myServer(server_i), myUser(user_i) {}
  Journal_Collection(Journal_Collection const&) = delete;
  Journal_Collection& operator=(Journal_Collection const&) = delete;
  ~Journal_Collection() { Tell(); }

  // The first reason stays: what follows from it says less. A constant.
  void Fail(char const* reason_i) noexcept {
    if (*myReason == 0) myReason = reason_i;
  }
  void CountNew() noexcept { ++myNewCount; }
  void CountKnown() noexcept { ++myKnownCount; }
  void CountBytes(PLXUInt32 bytes_i) noexcept { myBytes += bytes_i; }

 private:
  void Tell() const noexcept {
    try {
      if (auto* const service = Journal_GetService()) TellTo(service);
    } catch (...) {
    }
  }

  void TellTo(_PLXAPI_ModuleProcessingInfo* service_i) const {
    double const seconds = Journal_GetSeconds(myStart);
    bool const isGood = *myReason == 0;
    Journal_Line line(isGood ? "mailbox collected" : "mailbox failed");
    line.Add("server", myServer).Add("user", myUser).Add("new", myNewCount).Add("known", myKnownCount);
    line.Add("bytes", myBytes).Add("ms", Journal_GetMilliseconds(seconds)).Add("tag", PLXString(myTag));
    line.Add("page", PLXGlueGetCGIEnvironmentVariable(myInfo, "SCRIPT_NAME"));
    if (isGood) {
      PLXGlueAddNoteToServerLog(service_i, line.GetText());
      PLXString const labels =
          PLXGlueGetFigureLabel("server", myServer) + "," + PLXGlueGetFigureLabel("user", myUser);
      PLXGlueSetFigure(service_i, kJournal_LastCollection + "{" + labels + "}",
                       static_cast<double>(std::time(nullptr)));
    } else {
      line.Add("reason", PLXString(myReason));
      PLXGlueAddWarningToServerLog(service_i, line.GetText());
    }
    PLXGlueAddToFigure(service_i, isGood ? kJournal_CollectionsGood : kJournal_CollectionsFailed, 1);
    PLXGlueAddToFigure(service_i, kJournal_CollectedMessages, static_cast<double>(myNewCount));
    PLXGlueAddToFigure(service_i, kJournal_CollectedBytes, static_cast<double>(myBytes));
    PLXGlueAddToFigure(service_i, kJournal_CollectionSeconds, seconds);
  }

  _PLXAPI_ModuleProcessingInfo* const myInfo;
  char const* const myTag;
  PLXString const myServer;
  PLXString const myUser;
  Journal_Time const myStart = std::chrono::steady_clock::now();
  char const* myReason = "";
  std::uint64_t myNewCount = 0;
  std::uint64_t myKnownCount = 0;
  std::uint64_t myBytes = 0;
};

// ---- The service handle ----

static PLXUInt32 Journal_Open(_PLXAPI_ModuleProcessingInfo* info_i) {
  static Journal_MailObserver ourObserver;
  if (Journal_GetService() != nullptr) return kPLXResult_EventNotHandled;
  ourJournalService = *info_i;
  ourJournalIsOpen.store(true, std::memory_order_release);
  Journal_DescribeFigures(&ourJournalService);
  PLXEmailSendThread::SetObserver(&ourObserver);
  return kPLXResult_Success;
}

static void Journal_Close() noexcept {
  PLXEmailSendThread::SetObserver(nullptr);
  ourJournalIsOpen.store(false, std::memory_order_release);
}
